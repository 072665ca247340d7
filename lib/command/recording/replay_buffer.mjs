const bytesOf = ({ data, samples }) => data?.length ?? samples.byteLength;

/**
 * The last seconds of a capture, from a keyframe on: so many that as much as
 * was asked for is there, and never more than `mostBytes` of them.
 */
export class ReplayBuffer {
  #spanUs;
  #mostBytes;
  // Pictures from one keyframe up to the next.
  #groups = [];
  #sound = [];
  #bytes = 0;

  constructor({ seconds, mostBytes = Infinity }) {
    this.#spanUs = seconds * 1e6;
    this.#mostBytes = mostBytes;
  }

  get bytes() {
    return this.#bytes;
  }

  get #lastPicture() {
    return this.#groups.at(-1)?.at(-1);
  }

  get seconds() {
    const last = this.#lastPicture;
    return last === undefined ? 0
      : (last.timestampUs + last.durationUs -
        this.#groups[0][0].timestampUs) / 1e6;
  }

  addVideo(packet) {
    // A gap may have left out what this one builds on.
    if (packet.isKeyframe) this.#groups.push([]);
    else if (this.#groups.length === 0) return;
    this.#groups.at(-1).push(packet);
    this.#bytes += bytesOf(packet);
    const neededUs = packet.timestampUs + packet.durationUs - this.#spanUs;
    while (this.#groups.length > 1 &&
      this.#groups[1][0].timestampUs <= neededUs) this.#forgetGroup();
    this.#limit();
  }

  addAudio(packet) {
    this.#sound.push(packet);
    this.#bytes += bytesOf(packet);
    this.#forgetSound();
    this.#limit();
  }

  #limit() {
    while (this.#bytes > this.#mostBytes && this.#groups.length > 1) {
      this.#forgetGroup();
    }
    // Without pictures there is nothing that sound could belong to.
    while (this.#bytes > this.#mostBytes && this.#sound.length > 0) {
      this.#bytes -= bytesOf(this.#sound.shift());
    }
  }

  #forgetGroup() {
    for (const packet of this.#groups.shift()) this.#bytes -= bytesOf(packet);
    this.#forgetSound();
  }

  #forgetSound() {
    const beginUs = this.#groups[0]?.[0].timestampUs ??
      this.#sound.at(-1).timestampUs - this.#spanUs;
    let count = 0;
    while (count < this.#sound.length && this.#sound[count].timestampUs +
      this.#sound[count].durationUs <= beginUs) {
      this.#bytes -= bytesOf(this.#sound[count]);
      count += 1;
    }
    this.#sound.splice(0, count);
  }

  /**
   * All that is there now, in the order of a file. Sound comes later than the
   * pictures of its time, so the last of those are left out, but for a sound
   * that does not come at all.
   */
  read({ soundPatienceUs = 1_000_000 } = {}) {
    const last = this.#sound.at(-1);
    const pictures = this.#groups.flat();
    const endUs = this.#lastPicture?.timestampUs;
    const heardUs = last === undefined ? -Infinity
      : last.timestampUs + last.durationUs;
    const untilUs = heardUs < endUs - soundPatienceUs ? Infinity : heardUs;
    return [...pictures.filter(({ timestampUs, durationUs }) =>
      timestampUs + durationUs <= untilUs), ...this.#sound]
      .sort((a, b) => a.timestampUs - b.timestampUs);
  }
}
