'use strict';

const { EventEmitter } = require('node:events');
const { setImmediate: nextTurn, setTimeout: sleep } =
  require('node:timers/promises');

const { AudioFollower } = require('./audio_follower.js');
const { planAudio } = require('./audio_options.js');
const { CaptureError, argumentError, fromNative } = require('./errors.js');
const { Interruptions, isPassing } = require('./interruptions.js');
const { requireInteger, requireObject } = require('./options.js');
const { AudioQueue, VideoQueue } = require('./packet_queue.js');
const { AudioPacket, VideoPacket } = require('./packets.js');
const { tidyStats } = require('./stats.js');

// Some two seconds of pictures, and of sound in buffers of 10 to 20 ms.
const videoQueueLimit = 64;
const audioQueueLimit = 200;
const longestQueue = 100_000;

// How long the last packets of a stopped capture are waited for.
const drainLimitMs = 1000;

// A desktop that ends a session takes its stream away first, and says so a
// moment later.
const portalGraceMs = 500;

/** A running capture; made by startCapture. */
class CaptureSession {
  #native;
  #source;
  #release;
  #videoQueues = [];
  #audioQueue = null;
  #mode;
  #follower = null;
  #keyframeTimer = null;
  #stopping = null;
  #isEnding = false;
  #lastStats = null;
  #received = { video: 0, audio: 0 };
  #finish;
  #interruptions = new Interruptions({
    readCode: () => this.#native.getStats().interruption,
    onOver: (recovery) => this.events.emit('recovered', recovery),
  });

  constructor({ native, source, release }) {
    this.#native = native;
    this.#source = source;
    this.#release = release;
    this.events = new EventEmitter();
    this.source = source.description;
    this.sourceSize = Object.freeze({ ...source.size });
    this.restoreToken = source.restoreToken;
    /** Resolves, never rejects, with { reason, error } when all is over. */
    this.ended = new Promise((resolve) => {
      this.#finish = resolve;
    });
  }

  /** Starts the native capture; only startCapture calls this. */
  start(plan) {
    try {
      this.#launch(plan);
    } catch (error) {
      // An event that is still under way must not end the next capture.
      this.#isEnding = true;
      throw error;
    }
  }

  #launch({ capture, linuxAudio, request, audioPlan, keyframeSeconds }) {
    const native = this.#native;
    const count = 1 + capture.topology.branches.length;
    for (let branch = 0; branch < count; branch += 1) {
      this.#videoQueues.push(new VideoQueue(videoQueueLimit,
        () => native.forceKeyframe()));
    }
    if (linuxAudio !== null) this.#audioQueue = new AudioQueue(audioQueueLimit);
    this.#mode = linuxAudio?.mode ?? 'none';
    native.onFragmentReady((packet) => {
      this.#received.video += 1;
      this.#interruptions.packetCame('video');
      this.#videoQueues[packet.branchIndex]?.push(new VideoPacket(packet));
    });
    native.onAudioSamples((packet) => {
      this.#received.audio += 1;
      this.#interruptions.packetCame('audio');
      this.#audioQueue?.push(new AudioPacket(packet));
    });
    native.onCaptureLifecycle((event) => this.#onLifecycle(event));
    native.captureSetup({ ...request, capture });
    this.branches = Object.freeze(native.getStats().branchStats.map((entry) =>
      Object.freeze({
        branch: entry.branchIndex,
        width: entry.width,
        height: entry.height,
        fps: entry.targetFps,
      })));
    if (this.branches.length < count) {
      native.stopCapture();
      throw argumentError('the picture is too small for so many branches: ' +
        'fitted to the source, one is not smaller than the one before it');
    }
    if (keyframeSeconds !== null) {
      this.#keyframeTimer = setInterval(
        () => native.forceKeyframe(), keyframeSeconds * 1000);
      this.#keyframeTimer.unref();
    }
    this.#source.closed?.then((detail) =>
      this.#end('source-ended', { detail }));
    this.#follow(audioPlan, linuxAudio);
  }

  get isActive() {
    return !this.#isEnding;
  }

  /** True when the sound is recorded too. */
  get hasAudio() {
    return this.#audioQueue !== null;
  }

  /** The pictures of one branch, as an async iterator. */
  video(options = {}) {
    requireObject(options, 'options', ['branch', 'maxQueue']);
    const { branch = 0, maxQueue } = options;
    requireInteger(branch, 'branch', 0, this.#videoQueues.length - 1);
    if (maxQueue !== undefined) {
      requireInteger(maxQueue, 'maxQueue', 1, longestQueue);
    }
    return this.#videoQueues[branch].read(`branch ${branch}`, maxQueue);
  }

  /** The sound, as an async iterator. */
  audio(options = {}) {
    requireObject(options, 'options', ['maxQueue']);
    if (options.maxQueue !== undefined) {
      requireInteger(options.maxQueue, 'maxQueue', 1, longestQueue);
    }
    if (this.#audioQueue === null) {
      throw new CaptureError('ERR_CAPTURE_UNSUPPORTED',
        'the capture was started without sound');
    }
    return this.#audioQueue.read('the sound', options.maxQueue);
  }

  stats() {
    return tidyStats(this.#lastStats ?? this.#native.getStats(), {
      videoQueues: this.#videoQueues,
      audioQueue: this.#audioQueue,
      isActive: this.isActive,
    });
  }

  /** Asks every branch for a keyframe; false when that was not possible. */
  forceKeyframe() {
    this.#requireActive();
    return this.#native.forceKeyframe();
  }

  /** Shares a new bitrate out to the branches of a hardware capture. */
  setBitrate(bitsPerSecond) {
    this.#requireActive();
    requireInteger(bitsPerSecond, 'bitsPerSecond', 1);
    try {
      return this.#native.setBitrate(bitsPerSecond).branchBitrates.map(
        ({ branchIndex, bitrate }) => ({ branch: branchIndex, bitrate }));
    } catch (error) {
      throw fromNative(error, 'ERR_CAPTURE_UNSUPPORTED');
    }
  }

  /** Records other applications from now on; takes what `audio` takes. */
  async setAudioTargets(audio) {
    this.#requireActive();
    const plan = planAudio(audio);
    if (plan === null) {
      throw argumentError('a capture cannot go on without its sound');
    }
    if (this.#mode !== 'process') {
      throw new CaptureError('ERR_CAPTURE_UNSUPPORTED',
        'only a capture of the sound of applications can change it');
    }
    const linuxAudio = await plan.find();
    this.#requireActive();
    this.#follower?.stop();
    this.#follower = null;
    this.#bind(linuxAudio);
    this.#follow(plan, linuxAudio);
  }

  /** Ends the capture; resolves when everything of it is over. */
  stop() {
    return this.#end('stop');
  }

  /** Ends the capture because its signal asked for it. */
  abort() {
    return this.#end('abort');
  }

  [Symbol.asyncDispose]() {
    return this.stop();
  }

  #requireActive() {
    if (!this.isActive) {
      throw new CaptureError('ERR_CAPTURE_STOPPED', 'the capture has ended');
    }
  }

  #bind(linuxAudio) {
    try {
      this.#native.updateAudioTargets(linuxAudio);
    } catch (error) {
      throw fromNative(error, 'ERR_CAPTURE_AUDIO');
    }
    this.events.emit('targets', linuxAudio);
  }

  #follow(plan, linuxAudio) {
    if (!plan?.isFollowed) return;
    this.#follower = new AudioFollower({
      choose: plan.choose,
      bind: (found) => this.#bind(found),
      report: (error) => this.#emitError(new CaptureError(
        'ERR_CAPTURE_AUDIO', error.message, { cause: error, isFatal: false })),
      bound: linuxAudio,
    });
  }

  #emitError(error) {
    // Without a listener it would end the process; readers and "ended" get
    // what is fatal in any case.
    if (this.events.listenerCount('error') > 0) {
      this.events.emit('error', error);
    }
  }

  #onLifecycle({ state, reason, code = 'pipeline-error' }) {
    if (this.#isEnding || state === 'ready') return;
    if (state === 'stopped') {
      this.#end('source-ended', { detail: reason });
      return;
    }
    // The name of the pipeline stands before the colon in every reason of one.
    const kind = reason.startsWith('audio: ') ? 'audio' : 'video';
    const errorOf = (ownCode, isFatal) =>
      new CaptureError(ownCode, reason, { isFatal, nativeCode: code });
    if (isPassing(code)) {
      const error = errorOf('ERR_CAPTURE_INTERRUPTED', false);
      if (this.#interruptions.begin(kind, error)) this.#emitError(error);
    } else if (kind === 'video') {
      this.#fail(errorOf('ERR_CAPTURE_VIDEO', true));
    } else if (this.#follower === null || code !== 'source-lost') {
      this.#emitError(errorOf('ERR_CAPTURE_AUDIO', false));
    }
  }

  async #fail(error) {
    const { closed } = this.#source;
    if (closed !== null) {
      const grace = sleep(portalGraceMs, null, { ref: false });
      const detail = await Promise.race([closed, grace]);
      if (detail !== null) {
        this.#end('source-ended', { detail });
        return;
      }
    }
    this.#end('error', { error });
  }

  #end(reason, { error = null, detail = null } = {}) {
    this.#stopping ??= this.#shutDown(reason, error, detail);
    return this.#stopping;
  }

  async #shutDown(reason, error, detail) {
    this.#isEnding = true;
    this.#follower?.stop();
    this.#interruptions.stop();
    clearInterval(this.#keyframeTimer);
    try {
      const lastStats = this.#native.getStats();
      this.#native.stopCapture();
      await this.#drain();
      this.#lastStats = lastStats;
    } finally {
      for (const queue of this.#videoQueues) queue.end(error);
      this.#audioQueue?.end(error);
      await this.#release();
    }
    if (error !== null) this.#emitError(error);
    const end = { reason, error, detail };
    this.events.emit('stopped', end);
    this.#finish(end);
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

module.exports = { CaptureSession };
