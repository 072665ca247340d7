'use strict';

// What is left out when the way to the server carries less than is sent. A
// software encoder keeps its rate, so whole pictures go: first the upper
// temporal layers, then the branches, the largest first, so that the last one
// left is the smallest. A hardware encoder has no layers, and takes a new bitrate
// at once: it gets less before branches go.

const lossThatIsTooMuch = 0.1;
const lossThatIsLittle = 0.02;
// So many bad rounds in a row make a step; a burst of loss alone makes none.
const badRoundsForStep = 2;
// A step back is tried after this long without loss; each try that fails
// doubles it.
const firstPatienceMs = 6_000;
const longestPatienceMs = 60_000;
// A receiver's estimate counts when it is this much below what is sent.
const estimateShare = 0.85;
// What waits to be sent for longer than this will not arrive in time.
const longestQueueMs = 400;

const hardwareShares = [1, 0.7, 0.5, 0.35, 0.25];

/** Every step from everything to the least that is worth sending. */
function planSteps(branchCount, layerCount, isHardware) {
  const steps = [];
  if (isHardware) {
    for (const bitrateShare of hardwareShares) {
      steps.push({ firstBranch: 0, layers: 1, bitrateShare });
    }
  } else {
    for (let layers = layerCount; layers >= 1; layers -= 1) {
      steps.push({ firstBranch: 0, layers, bitrateShare: 1 });
    }
  }
  for (let branch = 1; branch < branchCount; branch += 1) {
    steps.push({ ...steps.at(-1), firstBranch: branch });
  }
  return steps;
}

/** Decides, once a second, how much is sent. */
class RateControl {
  #steps;
  #index = 0;
  #badRounds = 0;
  #goodSinceMs = null;
  #patienceMs = firstPatienceMs;
  #steppedUpMs = null;

  constructor({ branchCount, layerCount, isHardware = false }) {
    this.#steps = planSteps(branchCount, layerCount, isHardware);
    /** Why the last step down was made; null while nothing is left out. */
    this.reason = null;
  }

  get step() {
    return this.#steps[this.#index];
  }

  /**
   * One round: the share of packets that were lost, what the receiver thinks
   * the way carries (or null), what is sent, and how long packets wait.
   * Returns true when the step changed.
   */
  judge({ nowMs, loss, estimate, sentBitsPerSecond, queueMs }) {
    const reason = this.#reasonFor(
      { loss, estimate, sentBitsPerSecond, queueMs });
    if (reason !== null) return this.#goDown(nowMs, reason);
    this.#badRounds = 0;
    if (loss > lossThatIsLittle || this.#index === 0) {
      this.#goodSinceMs = null;
      return false;
    }
    this.#goodSinceMs ??= nowMs;
    if (nowMs - this.#goodSinceMs < this.#patienceMs) return false;
    this.#index -= 1;
    this.#goodSinceMs = nowMs;
    this.#steppedUpMs = nowMs;
    if (this.#index === 0) this.reason = null;
    return true;
  }

  #reasonFor({ loss, estimate, sentBitsPerSecond, queueMs }) {
    if (queueMs > longestQueueMs) return 'queue';
    if (loss > lossThatIsTooMuch) return 'loss';
    if (estimate !== null && estimate < sentBitsPerSecond * estimateShare) {
      return 'estimate';
    }
    return null;
  }

  #goDown(nowMs, reason) {
    this.#goodSinceMs = null;
    this.#badRounds += 1;
    if (this.#badRounds < badRoundsForStep ||
        this.#index === this.#steps.length - 1) {
      return false;
    }
    this.#badRounds = 0;
    const failedTry = this.#steppedUpMs !== null &&
      nowMs - this.#steppedUpMs < this.#patienceMs;
    this.#patienceMs = failedTry
      ? Math.min(this.#patienceMs * 2, longestPatienceMs) : firstPatienceMs;
    this.#index += 1;
    this.reason = reason;
    return true;
  }
}

module.exports = { RateControl };
