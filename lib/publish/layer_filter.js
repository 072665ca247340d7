'use strict';

/**
 * Chooses the pictures of one branch that are sent, so that none is sent whose
 * reference was left out: a layer comes back with the next picture of the
 * lowest one, a branch with a keyframe.
 */
class LayerFilter {
  #layers;
  #wantedLayers;
  #isOn = true;
  #needsKeyframe = true;

  constructor(layers) {
    this.#layers = layers;
    this.#wantedLayers = layers;
  }

  get isOn() {
    return this.#isOn;
  }

  get needsKeyframe() {
    return this.#isOn && this.#needsKeyframe;
  }

  /** The layers that may be sent from now on; none switches the branch off. */
  allow(layers) {
    const wasOn = this.#isOn;
    this.#isOn = layers > 0;
    if (!this.#isOn || !wasOn) this.#needsKeyframe = true;
    if (!this.#isOn) return;
    this.#wantedLayers = layers;
    // Less can hold at once, since nothing refers to an upper layer from below.
    this.#layers = Math.min(this.#layers, layers);
  }

  /** Pictures before this one were lost on the way here. */
  lostSome() {
    this.#needsKeyframe = true;
  }

  takes({ isKeyframe, temporalId }) {
    if (!this.#isOn || (this.#needsKeyframe && !isKeyframe)) return false;
    this.#needsKeyframe = false;
    if (temporalId === 0) this.#layers = this.#wantedLayers;
    return temporalId < this.#layers;
  }
}

module.exports = { LayerFilter };
