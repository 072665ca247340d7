/**
 * What a session needs of the native module, under the control of a test:
 * events and packets come when the test sends them.
 */
export class FakeNative {
  #callbacks = {};
  /** What the statistics tell. */
  interruption = '';
  isStopped = false;

  constructor() {
    for (const name of ['onFragmentReady', 'onAudioSamples',
      'onCaptureLifecycle']) {
      this[name] = (callback) => {
        this.#callbacks[name] = callback;
      };
    }
  }

  captureSetup() {}

  stopCapture() {
    this.isStopped = true;
  }

  forceKeyframe() {
    return true;
  }

  getStats() {
    const branch = { branchIndex: 0, width: 64, height: 32, targetFps: 30 };
    return {
      branchStats: [branch], interruption: this.interruption,
      videoBridgeQueuedPackets: 0, audioBridgeQueuedPackets: 0,
    };
  }

  /** An "error" event; as the module's own, it does not list its code. */
  sendError(reason, code) {
    const event = { state: 'error', reason, width: 64, height: 32 };
    if (code !== undefined) Object.defineProperty(event, 'code', { value: code });
    this.#callbacks.onCaptureLifecycle(event);
  }

  sendVideo() {
    this.#callbacks.onFragmentReady({ branchIndex: 0, isKeyFrame: true });
  }

  sendAudio() {
    this.#callbacks.onAudioSamples(
      { sampleCount: 2, channels: 2, peakAbsoluteSample: 0 });
  }
}
