// Rates are those of the last two seconds, as a person expects of a display.
const windowUs = 2e6;

/** The pictures and bytes of the last moments. */
class RecentRate {
  #entries = [];
  #bytes = 0;

  add({ timestampUs, data }) {
    this.#entries.push({ timestampUs, bytes: data.length });
    this.#bytes += data.length;
    while (this.#entries[0].timestampUs < timestampUs - windowUs) {
      this.#bytes -= this.#entries.shift().bytes;
    }
  }

  read() {
    const spanUs = this.#entries.length < 2 ? 0
      : this.#entries.at(-1).timestampUs - this.#entries[0].timestampUs;
    const perSecond = (value) => (spanUs === 0 ? 0 : value / spanUs * 1e6);
    return {
      fps: perSecond(this.#entries.length - 1),
      bitsPerSecond: perSecond(this.#bytes * 8),
    };
  }
}

/** Moves what a session delivers to where a recording goes. */
export class Recorder {
  #session;
  #target;
  #duration;
  #rate = new RecentRate();
  #peak = 0;
  #originUs = null;
  #endUs = 0;

  constructor(session, target, { duration = Infinity } = {}) {
    this.#session = session;
    this.#target = target;
    this.#duration = duration;
    // One who does not read must not keep a recording from its end.
    session.ended.then(() => target.hurry?.());
  }

  /** Seconds since the first picture, without pauses. */
  get seconds() {
    return this.#originUs === null ? 0 : (this.#endUs - this.#originUs) / 1e6;
  }

  /** Resolves when the session has ended and all of it is on its way. */
  async run() {
    const results = await Promise.allSettled([
      this.#copy(this.#session.video(), (packet) => this.#addVideo(packet)),
      this.#session.hasAudio ? this.#copy(this.#session.audio(),
        (packet) => this.#addAudio(packet)) : null,
    ]);
    const failed = results.find(({ status }) => status === 'rejected');
    if (failed !== undefined) throw failed.reason;
  }

  async #copy(packets, add) {
    try {
      for await (const packet of packets) await add(packet);
    } catch (error) {
      // What cannot be written is no reason to capture on.
      await this.#session.stop();
      throw error;
    }
  }

  async #addVideo(packet) {
    if (this.seconds >= this.#duration) {
      // Not waited for: it ends when the readers have come to the end.
      this.#session.stop();
      return;
    }
    const { timestampUs, durationUs } = packet;
    this.#originUs ??= timestampUs;
    this.#rate.add(packet);
    await this.#target.addVideo(packet);
    this.#endUs = timestampUs + durationUs;
  }

  async #addAudio(packet) {
    this.#peak = Math.max(this.#peak, packet.peak);
    await this.#target.addAudio(packet);
  }

  /** Pictures that were lost on the way here. */
  get dropped() {
    const [branch] = this.#session.stats().video.branches;
    return branch === undefined ? 0
      : branch.droppedByModule + branch.reader.dropped;
  }

  /** How it goes; the level of sound is the loudest since the last look. */
  status() {
    const peak = this.#session.hasAudio ? this.#peak : null;
    this.#peak = 0;
    return {
      seconds: this.seconds,
      ...this.#rate.read(),
      bytes: this.#target.size,
      dropped: this.dropped,
      peak,
      isPaused: this.#session.isPaused,
    };
  }
}
