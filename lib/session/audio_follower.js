'use strict';

const { CaptureError } = require('./errors.js');
const { followSound } = require('./targets.js');

// Until the listening is tried again after it has failed.
const listenAgainMs = 5000;

// Until targets are tried again that could not be recorded. Each time may hold
// up the program for some seconds, so it is not done for ever.
const bindAgainMs = [500, 2000, 8000];

const nothing = Object.freeze([]);

/**
 * Keeps the recorded sound with what is to be recorded: an application opens
 * and closes streams or goes on after a pause, another input becomes the
 * default. A stream that has ended is only left out together with the next
 * change: it is silent, and every change interrupts the others for a moment.
 */
class AudioFollower {
  #plan;
  #bind;
  #report;
  #bound;
  #failures = 0;
  #latest = null;
  #listening = null;
  #listenTimer = null;
  #bindTimer = null;
  #lastReported = null;
  #isStopped = false;

  /**
   * `plan` chooses from what there is, `bind` applies it, `report` gets what
   * went wrong, once. `bound` are the targets that are recorded already.
   */
  constructor({ plan, bind, report, bound }) {
    this.#plan = plan;
    this.#bind = bind;
    this.#report = report;
    this.#bound = new Set(bound);
    this.#listen();
  }

  stop() {
    this.#isStopped = true;
    clearTimeout(this.#listenTimer);
    clearTimeout(this.#bindTimer);
    this.#listening?.stop();
    this.#listening = null;
  }

  #listen() {
    try {
      this.#listening = followSound({
        onTargets: (targets) => this.#onTargets(targets),
        onEnd: (error) => this.#listenLater(error),
      });
    } catch (error) {
      this.#listenLater(error);
    }
  }

  #listenLater(error) {
    if (this.#isStopped) return;
    this.#listening = null;
    this.#reportOnce(error);
    this.#listenTimer = setTimeout(() => this.#listen(), listenAgainMs);
    this.#listenTimer.unref();
  }

  #onTargets(targets) {
    if (this.#isStopped) return;
    if (targets.applications === null) {
      this.#reportOnce(new CaptureError('ERR_CAPTURE_NO_PIPEWIRE',
        targets.problems[0]?.message ?? 'the sound cannot be followed'));
      return;
    }
    this.#lastReported = null;
    this.#latest = targets;
    if (this.#bindTimer === null) this.#update();
  }

  #update() {
    const found = this.#plan.choose(this.#latest, this.#bound);
    const wanted = found.linuxAudio?.pipeWireTargetObjects ?? nothing;
    if (wanted.some((target) => !this.#bound.has(target))) {
      try {
        this.#bind(found);
        this.#failures = 0;
      } catch (error) {
        this.#report(error);
        this.#updateLater(wanted);
        return;
      }
      this.#bound = new Set(wanted);
    }
    if (!this.#plan.isFollowed && !found.isWaiting) this.stop();
  }

  #updateLater(failed) {
    const afterMs = bindAgainMs[this.#failures];
    this.#failures += 1;
    if (afterMs === undefined) {
      // As if they were recorded: only others are a reason to try again.
      this.#bound = new Set(failed);
      this.#failures = 0;
      return;
    }
    this.#bound.clear();
    this.#bindTimer = setTimeout(() => {
      this.#bindTimer = null;
      this.#update();
    }, afterMs);
    this.#bindTimer.unref();
  }

  #reportOnce(error) {
    if (error.message === this.#lastReported) return;
    this.#lastReported = error.message;
    this.#report(error);
  }
}

module.exports = { AudioFollower };
