'use strict';

// How often the streams of a followed application are looked up. A look takes
// a short program run, and a new stream is unheard for as long at most.
const usualPeriodMs = 1000;

/**
 * Keeps the recorded sound with an application that opens and closes streams.
 * A stream that has ended is only left out together with the next change: it
 * is silent, and every change interrupts the others for a moment.
 */
class AudioFollower {
  #find;
  #bind;
  #report;
  #bound;
  #timer = null;
  #isStopped = false;
  #periodMs;

  /** `find` resolves with targets or null, `bind` applies new ones. */
  constructor({ find, bind, report, bound, periodMs = usualPeriodMs }) {
    this.#find = find;
    this.#bind = bind;
    this.#report = report;
    this.#bound = new Set(bound.pipeWireTargetObjects);
    this.#periodMs = periodMs;
    this.#schedule();
  }

  stop() {
    this.#isStopped = true;
    clearTimeout(this.#timer);
  }

  #schedule() {
    if (this.#isStopped) return;
    this.#timer = setTimeout(() => this.#look(), this.#periodMs);
    this.#timer.unref();
  }

  async #look() {
    try {
      const found = await this.#find();
      if (!this.#isStopped && found !== null && this.#hasNew(found)) {
        // Set first: targets that cannot be bound are not tried for ever.
        this.#bound = new Set(found.pipeWireTargetObjects);
        this.#bind(found);
      }
    } catch (error) {
      if (!this.#isStopped) this.#report(error);
    }
    this.#schedule();
  }

  #hasNew({ pipeWireTargetObjects }) {
    return pipeWireTargetObjects.some((target) => !this.#bound.has(target));
  }
}

module.exports = { AudioFollower };
