/** Plays the captured sound. Made on a click, as browsers require. */
export class Listener {
  #context = null;
  #gain;
  #node = null;
  #volume;
  #isStopped = false;

  constructor(volume) {
    this.#volume = volume;
  }

  setVolume(volume) {
    this.#volume = volume;
    if (this.#gain) this.#gain.gain.value = volume;
  }

  async #open(sampleRate) {
    this.#context =
      new AudioContext({ sampleRate, latencyHint: 'interactive' });
    await this.#context.audioWorklet.addModule('listener_worklet.mjs');
    if (this.#isStopped) return;
    this.#gain = new GainNode(this.#context, { gain: this.#volume });
    this.#node = new AudioWorkletNode(this.#context, 'listener',
      { numberOfInputs: 0, outputChannelCount: [2] });
    this.#node.connect(this.#gain).connect(this.#context.destination);
  }

  push({ sampleRate, samples }) {
    if (this.#context === null) this.#open(sampleRate);
    // Copied out of the message, which holds more than the samples.
    this.#node?.port.postMessage(samples.slice());
  }

  stop() {
    this.#isStopped = true;
    this.#context?.close();
  }
}
