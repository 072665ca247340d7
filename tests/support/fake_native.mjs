/**
 * What a session needs of the native module, under the control of a test:
 * events and packets come when the test sends them.
 */
export class FakeNative {
  #callbacks = {};
  #originUs = 0;
  /** What the statistics tell. */
  interruption = '';
  isStopped = false;
  /** Where the times of the next capture begin. */
  originUs = 0;
  frames = 0;
  requests = [];
  targets = [];
  refuse = null;

  constructor() {
    for (const name of ['onFragmentReady', 'onAudioSamples',
      'onCaptureLifecycle']) {
      this[name] = (callback) => {
        this.#callbacks[name] = callback;
      };
    }
  }

  /** A capture; what `refuse` returns for its request is thrown. */
  captureSetup(request) {
    this.requests.push(request);
    const error = this.refuse?.(request);
    if (error !== undefined) throw error;
    this.isStopped = false;
    this.frames = 0;
    this.#originUs = this.originUs;
    this.sendEvent({ state: 'ready', reason: 'x' });
  }

  stopCapture() {
    this.isStopped = true;
    this.sendEvent({ state: 'stopped', reason: 'stopCapture' });
  }

  forceKeyframe() {
    return true;
  }

  updateAudioTargets(linuxAudio) {
    this.targets.push(linuxAudio);
  }

  getStats() {
    const branch = {
      branchIndex: 0, width: 64, height: 32, targetFps: 30, observedFps: 30,
      byteRate: 1, encodedFrames: this.frames, keyframes: this.frames,
      bytesEncoded: 10 * this.frames, temporalFrameCounts: [this.frames, 0, 0],
      bridgeDroppedPackets: 0, bridgeSuppressedDeltaPackets: 0,
    };
    return {
      branchStats: [branch], interruption: this.interruption,
      videoBridgeQueuedPackets: 0, audioBridgeQueuedPackets: 0,
      sessionClockOriginUs: this.#originUs,
      firstVideoTimestampUs: 1, lastVideoTimestampUs: 2,
      gstBusErrors: 0, lastGstBusError: '',
      openH264Errors: 0, lastOpenH264Error: '',
      linuxAudio: { mode: 'system' }, audioSourceStats: [],
    };
  }

  sendEvent(event) {
    this.#callbacks.onCaptureLifecycle?.({ width: 64, height: 32, ...event });
  }

  /** An "error" event; as the module's own, it does not list its code. */
  sendError(reason, code) {
    const event = { state: 'error', reason, width: 64, height: 32 };
    if (code !== undefined) Object.defineProperty(event, 'code', { value: code });
    this.#callbacks.onCaptureLifecycle(event);
  }

  sendVideo(packet = {}) {
    this.frames += 1;
    this.#callbacks.onFragmentReady(
      { branchIndex: 0, isKeyFrame: true, ...packet });
  }

  sendAudio() {
    this.#callbacks.onAudioSamples(
      { sampleCount: 2, channels: 2, peakAbsoluteSample: 0 });
  }
}
