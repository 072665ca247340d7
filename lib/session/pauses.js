'use strict';

const process = require('node:process');

const { Cuts } = require('./cuts.js');

// Sound waits for the first picture after a pause, to begin with it. More than
// this is waiting for a source that stands still.
const longestWaitUs = 2_000_000;

// A keyframe takes many times the bits of another picture, of every branch.
const askPeriodUs = 200_000;

const monotonicUs = () => Number(process.hrtime.bigint() / 1000n);

/** The part of a buffer of sound that lies between two of its own times. */
function partOf(packet, fromUs, toUs) {
  const { timestampUs, sampleRate, channels, frames } = packet;
  const frameAt = (timeUs) => (timeUs >= timestampUs + packet.durationUs
    ? frames : Math.round((timeUs - timestampUs) / 1e6 * sampleRate));
  const [from, to] = [frameAt(fromUs), frameAt(toUs)];
  if (to - from === frames) return packet;
  if (from >= to) return null;
  const part = Object.assign(
    Object.create(Object.getPrototypeOf(packet)), packet);
  part.samples = packet.samples.subarray(from * channels, to * channels);
  part.frames = to - from;
  part.timestampUs = timestampUs + Math.round(from / sampleRate * 1e6);
  part.durationUs = Math.round(part.frames / sampleRate * 1e6);
  part.peak = part.samples.reduce(
    (most, sample) => Math.max(most, Math.abs(sample)), 0) / 32_768;
  return part;
}

/**
 * Cuts pauses out of what a capture delivers. The native capture goes on
 * meanwhile, since there is no way to hold one. Packets come later than what
 * they show, so what is cut goes by their times: nothing of a pause gets out,
 * and nothing from before it is lost.
 *
 * A cut ends at a keyframe: the first picture, of any branch, that shows what
 * was there after the pause. All that follows is moved by the length of the
 * cut, sound by exactly as much as pictures.
 */
class Pauses {
  #branches = [];
  #cuts = new Cuts();
  #state = 'running';
  #resumedUs = 0;
  #askedUs = -Infinity;
  #heldSound = [];
  #deliver;
  #requestKeyframe;
  #onResumed;
  #originUs;
  #now;

  /**
   * `deliver` gets what goes out, `onResumed` is called when pictures come
   * again; `originUs` reads where the time of the capture begins on the
   * monotonic clock, which `now` reads.
   */
  constructor({ deliver, requestKeyframe, onResumed, originUs,
    now = monotonicUs }) {
    this.#deliver = deliver;
    this.#requestKeyframe = requestKeyframe;
    this.#onResumed = onResumed;
    this.#originUs = originUs;
    this.#now = now;
  }

  /** True from `pause` to `resume`. */
  get isPaused() {
    return this.#state === 'paused';
  }

  /** How much was left out: by so much are packets of now earlier. */
  get cutUs() {
    return this.#cuts.totalUs;
  }

  /** Returns false when it was paused already. */
  pause() {
    if (this.#state === 'paused') return false;
    // Nothing has got out since a pause whose end was only asked for: it goes
    // on.
    if (this.#state === 'running') {
      // The picture of before and the one of after are half a picture apart.
      this.#cuts.open(Math.max(this.#captureUs(), ...this.#branches.map(
        ({ lastUs, durationUs }) => Math.ceil(lastUs + durationUs / 2))));
    }
    this.#state = 'paused';
    this.#releaseSound();
    return true;
  }

  /** Returns false when it was not paused. */
  resume() {
    if (this.#state !== 'paused') return false;
    this.#state = 'resuming';
    this.#resumedUs = this.#captureUs();
    for (const branch of this.#branches) branch.needsKeyframe = true;
    this.#ask();
    return true;
  }

  addVideo(packet) {
    const { timestampUs, durationUs, isKeyframe } = packet;
    const branch = this.#branches[packet.branch] ??=
      { lastUs: -Infinity, durationUs,
        needsKeyframe: this.#state !== 'running' };
    const isWaiting = this.#state !== 'paused' && branch.needsKeyframe;
    const isLater = isWaiting && timestampUs >= this.#resumedUs;
    // One that was asked for, but shows the pause: the next is asked for at
    // once.
    if (isWaiting && !isLater && isKeyframe) this.#askedUs = -Infinity;
    if (isLater && !isKeyframe) {
      this.#ask();
      return;
    }
    if (isLater && this.#state === 'resuming') this.#endCut(timestampUs);
    const placeUs = this.#cuts.isEmpty ? timestampUs
      : this.#cuts.placePicture(timestampUs, durationUs / 2);
    if (placeUs === null) return;
    if (isLater) branch.needsKeyframe = false;
    branch.lastUs = timestampUs;
    branch.durationUs = durationUs;
    packet.timestampUs = placeUs;
    this.#deliver(packet);
  }

  addAudio(packet) {
    if (this.#state !== 'resuming') {
      this.#cutSound(packet);
      return;
    }
    const held = this.#heldSound;
    held.push(packet);
    while (held[0].timestampUs < packet.timestampUs - longestWaitUs) {
      this.#cutSound(held.shift());
    }
  }

  #captureUs() {
    return this.#now() - this.#originUs();
  }

  #ask() {
    const now = this.#now();
    if (now - this.#askedUs < askPeriodUs) return;
    this.#askedUs = now;
    this.#requestKeyframe();
  }

  #endCut(timestampUs) {
    this.#state = 'running';
    this.#cuts.close(timestampUs);
    this.#onResumed();
    this.#releaseSound();
  }

  #releaseSound() {
    const held = this.#heldSound;
    this.#heldSound = [];
    for (const packet of held) this.#cutSound(packet);
  }

  #cutSound(packet) {
    if (this.#cuts.isEmpty) {
      this.#deliver(packet);
      return;
    }
    const { timestampUs, durationUs } = packet;
    const parts = this.#cuts.partsOf(timestampUs, timestampUs + durationUs);
    for (const [fromUs, toUs, movedUs] of parts) {
      const part = partOf(packet, fromUs, toUs);
      if (part === null) continue;
      part.timestampUs -= movedUs;
      this.#deliver(part);
    }
  }
}

module.exports = { Pauses };
