'use strict';

// Receivers ask again and again while a picture cannot be shown, and a keyframe
// is as large as many pictures. Two may follow each other soon, so that whoever
// comes right behind one of another need not wait.
const leastDistanceMs = 50;
const mostAtOnce = 2;
const windowMs = 600;

/** Tells when keyframes may be asked of the encoders. */
class KeyframeLimit {
  #lastMs = [];

  /** How long one that is wanted now has to wait. */
  waitMs(nowMs) {
    const last = this.#lastMs.at(-1) ?? Number.NEGATIVE_INFINITY;
    const first = this.#lastMs.length < mostAtOnce
      ? Number.NEGATIVE_INFINITY : this.#lastMs[0];
    return Math.max(0, last + leastDistanceMs - nowMs,
      first + windowMs - nowMs);
  }

  asked(nowMs) {
    this.#lastMs = [...this.#lastMs, nowMs].slice(-mostAtOnce);
  }
}

module.exports = { KeyframeLimit };
