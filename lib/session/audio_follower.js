'use strict';

const { CaptureError } = require('./errors.js');
const { followSound } = require('./targets.js');

// Until the listening is tried again after it has failed.
const retryMs = 5000;

/**
 * Keeps the recorded sound with an application that opens and closes streams.
 * A stream that has ended is only left out together with the next change: it
 * is silent, and every change interrupts the others for a moment.
 */
class AudioFollower {
  #choose;
  #bind;
  #report;
  #bound;
  #listening = null;
  #timer = null;
  #lastReported = null;
  #isStopped = false;

  /**
   * `choose` picks the targets, or null, from the applications that play,
   * `bind` applies new ones, `report` gets what went wrong, once.
   */
  constructor({ choose, bind, report, bound }) {
    this.#choose = choose;
    this.#bind = bind;
    this.#report = report;
    this.#bound = new Set(bound.pipeWireTargetObjects);
    this.#listen();
  }

  stop() {
    this.#isStopped = true;
    clearTimeout(this.#timer);
    this.#listening?.stop();
    this.#listening = null;
  }

  #listen() {
    try {
      this.#listening = followSound({
        onTargets: (targets) => this.#onTargets(targets),
        onEnd: (error) => this.#retryAfter(error),
      });
    } catch (error) {
      this.#retryAfter(error);
    }
  }

  #retryAfter(error) {
    if (this.#isStopped) return;
    this.#listening = null;
    this.#reportOnce(error);
    this.#timer = setTimeout(() => this.#listen(), retryMs);
    this.#timer.unref();
  }

  #onTargets({ applications, problems }) {
    if (this.#isStopped) return;
    if (applications === null) {
      this.#reportOnce(new CaptureError('ERR_CAPTURE_NO_PIPEWIRE',
        problems[0]?.message ?? 'the sound cannot be followed'));
      return;
    }
    this.#lastReported = null;
    const found = this.#choose(applications);
    if (found === null || !this.#hasNew(found)) return;
    // Set first: targets that cannot be bound are not tried for ever.
    this.#bound = new Set(found.pipeWireTargetObjects);
    try {
      this.#bind(found);
    } catch (error) {
      this.#report(error);
    }
  }

  #reportOnce(error) {
    if (error.message === this.#lastReported) return;
    this.#lastReported = error.message;
    this.#report(error);
  }

  #hasNew({ pipeWireTargetObjects }) {
    return pipeWireTargetObjects.some((target) => !this.#bound.has(target));
  }
}

module.exports = { AudioFollower };
