'use strict';

const { setImmediate: nextTurn } = require('node:timers/promises');

const { addStats, tidyStats } = require('./stats.js');

// How long the last packets of a stopped capture are waited for.
const drainLimitMs = 1000;

/**
 * The native captures of one session: one, and another in its place each time
 * that the source has to be opened anew. Times and statistics go on from one to
 * the next.
 */
class NativeRuns {
  #native;
  #context;
  #originUs = null;
  #offsetUs = 0;
  #lastUs = new Map();
  #received = { video: 0, audio: 0 };
  // What the captures before this one add up to, and the last words of one that
  // has ended.
  #earlier = null;
  #last = null;

  /** `context` returns what tidyStats takes beside the native statistics. */
  constructor(native, context) {
    this.#native = native;
    this.#context = context;
  }

  /** Where times begin, on the monotonic clock. */
  get originUs() {
    return this.#originUs;
  }

  begin(request) {
    const earlier = this.#last === null ? null : this.stats();
    this.#received = { video: 0, audio: 0 };
    this.#native.captureSetup(request);
    this.#earlier = earlier;
    this.#last = null;
    const { sessionClockOriginUs } = this.#native.getStats();
    if (this.#originUs === null) this.#originUs = sessionClockOriginUs;
    else this.#offsetUs = sessionClockOriginUs - this.#originUs;
  }

  /** Resolves when the last packets have come. */
  async end() {
    // One that could not be started has nothing to tell.
    const last = this.#last ?? this.#native.getStats();
    this.#native.stopCapture();
    await this.#drain();
    this.#last = last;
  }

  /**
   * Takes note of a packet; `kind` is "video" or "audio". Returns its time
   * since the first capture of the session began.
   */
  timeOf(kind, { branchIndex = kind, timestampUs }) {
    this.#received[kind] += 1;
    // A picture may be stamped a period ahead of the clock.
    const timeUs = this.#offsetUs === 0 ? timestampUs
      : Math.max(timestampUs + this.#offsetUs,
        (this.#lastUs.get(branchIndex) ?? 0) + 1);
    this.#lastUs.set(branchIndex, timeUs);
    return timeUs;
  }

  stats() {
    const now =
      tidyStats(this.#last ?? this.#native.getStats(), this.#context());
    return this.#earlier === null ? now
      : addStats(this.#earlier, now, this.#offsetUs);
  }

  /** Waits for the packets that the native queues still hold. */
  async #drain() {
    const { videoBridgeQueuedPackets: video, audioBridgeQueuedPackets: audio } =
      this.#native.getStats();
    const deadline = performance.now() + drainLimitMs;
    while ((this.#received.video < video || this.#received.audio < audio) &&
        performance.now() < deadline) {
      await nextTurn();
    }
  }
}

module.exports = { NativeRuns };
