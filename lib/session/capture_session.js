'use strict';

const { EventEmitter } = require('node:events');
const { setTimeout: sleep } = require('node:timers/promises');

const { audioRequest } = require('./audio_options.js');
const { CaptureError, argumentError, fromNative } = require('./errors.js');
const { Interruptions, isPassing, isReopening } =
  require('./interruptions.js');
const { NativeRuns } = require('./native_runs.js');
const { requireInteger, requireObject } = require('./options.js');
const { AudioQueue, VideoQueue } = require('./packet_queue.js');
const { AudioPacket, VideoPacket } = require('./packets.js');
const { Pauses } = require('./pauses.js');
const { SessionSound } = require('./session_sound.js');

// Some two seconds of pictures, and of sound in buffers of 10 to 20 ms.
const videoQueueLimit = 64;
const audioQueueLimit = 200;
const longestQueue = 100_000;

// A desktop that ends a session takes its stream away first, and says so a
// moment later.
const portalGraceMs = 500;

// A window that is still being resized may change while it is opened anew, which
// costs a start that JavaScript waits for.
const reopenPauseMs = 500;
const restlessMs = 2000;

// A compositor may have changed its stream at the very moment at which it was
// opened, and then wait for ever for what has been there already (seen with KWin
// 5.27). How long a stream that was opened anew may stay without a picture,
// each time; not for ever, because a start without pictures is a long one.
const silentMs = [1500, 3000, 6000];

// How long it may go on changing.
const changingMs = 15_000;

// A source refuses a start while its pictures change.
const mayBeChanging = ({ code }) =>
  code === 'state-change-failed' || code === 'source-stalled';

/** A running capture; made by startCapture. */
class CaptureSession {
  #native;
  #source;
  #release;
  #videoQueues = [];
  #audioQueue = null;
  #keyframeTimer = null;
  #stopping = null;
  #isEnding = false;
  #isReopening = false;
  #reopenedAt = -Infinity;
  #silences = 0;
  #silenceTimer = null;
  #runs;
  #capture;
  #sound;
  #bitsPerSecond = null;
  #finish;
  #pauses = new Pauses({
    deliver: (packet) => (packet.type === 'video'
      ? this.#videoQueues[packet.branch]?.push(packet)
      : this.#audioQueue?.push(packet)),
    requestKeyframe: () => this.#native.forceKeyframe(),
    onResumed: () => this.events.emit('resumed'),
    originUs: () => this.#runs.originUs,
  });
  #interruptions = new Interruptions({
    readCode: () => this.#native.getStats().interruption,
    onOver: (recovery) => this.events.emit('recovered', recovery),
  });

  constructor({ native, source, release }) {
    this.#native = native;
    this.#source = source;
    this.#release = release;
    this.#runs = new NativeRuns(native, () => ({
      videoQueues: this.#videoQueues,
      audioQueue: this.#audioQueue,
      isActive: this.isActive,
      ...this.#sound.described,
    }));
    this.#sound = new SessionSound({
      native,
      tell: (linuxAudio) => this.events.emit('targets', linuxAudio),
      report: (error) => this.#emitError(new CaptureError(
        'ERR_CAPTURE_AUDIO', error.message, { cause: error, isFatal: false })),
    });
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
      this.#sound.stop();
      throw error;
    }
  }

  #launch({ capture, sound, audioPlan, keyframeSeconds }) {
    const native = this.#native;
    this.#capture = capture;
    const count = 1 + capture.topology.branches.length;
    for (let branch = 0; branch < count; branch += 1) {
      this.#videoQueues.push(new VideoQueue(videoQueueLimit,
        () => native.forceKeyframe()));
    }
    if (sound !== null) this.#audioQueue = new AudioQueue(audioQueueLimit);
    this.#sound.prepare(audioPlan, sound);
    native.onFragmentReady((packet) => {
      const timeUs = this.#runs.timeOf('video', packet);
      if (this.#silenceTimer !== null) this.#expectNothing();
      this.#interruptions.packetCame('video');
      this.#pauses.addVideo(new VideoPacket(packet, timeUs));
    });
    native.onAudioSamples((packet) => {
      const timeUs = this.#runs.timeOf('audio', packet);
      this.#interruptions.packetCame('audio');
      this.#pauses.addAudio(new AudioPacket(packet, timeUs));
    });
    native.onCaptureLifecycle((event) => this.#onLifecycle(event));
    this.#begin(this.#source.request, sound);
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
  }

  #begin(sourceRequest, sound) {
    this.#sound.begin(sound, (linuxAudio) => this.#runs.begin({
      ...sourceRequest,
      ...audioRequest(linuxAudio),
      capture: this.#capture,
    }));
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
    const stats = this.#runs.stats();
    const { cutUs: pausedUs } = this.#pauses;
    // Packets of now are earlier by all pauses.
    const clockOriginUs = stats.sync.clockOriginUs + pausedUs;
    return { ...stats, sync: { ...stats.sync, clockOriginUs, pausedUs } };
  }

  /** True from `pause` to `resume`. */
  get isPaused() {
    return this.#pauses.isPaused;
  }

  /** Delivers nothing of what is there from now on, until `resume`. */
  pause() {
    this.#requireActive();
    if (this.#pauses.pause()) this.events.emit('paused');
  }

  /** Goes on with a keyframe, whose time follows what was delivered last. */
  resume() {
    this.#requireActive();
    this.#pauses.resume();
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
      this.#bitsPerSecond = bitsPerSecond;
      return this.#native.setBitrate(bitsPerSecond).branchBitrates.map(
        ({ branchIndex, bitrate }) => ({ branch: branchIndex, bitrate }));
    } catch (error) {
      throw fromNative(error, 'ERR_CAPTURE_UNSUPPORTED');
    }
  }

  /** Records other applications from now on; takes what `audio` takes. */
  async setAudioTargets(audio) {
    this.#requireActive();
    await this.#sound.change(audio, () => this.#requireActive());
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

  #emitError(error) {
    // Without a listener it would end the process; readers and "ended" get
    // what is fatal in any case.
    if (this.events.listenerCount('error') > 0) {
      this.events.emit('error', error);
    }
  }

  #onLifecycle({ state, reason, code = 'pipeline-error' }) {
    if (this.#isEnding) return;
    if (this.#isReopening || state === 'ready') {
      // Until then the events are of the capture before.
      if (state === 'ready') this.#isReopening = false;
      return;
    }
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
    } else if (isReopening(code) && this.#source.reopen) {
      this.#reopen(errorOf('ERR_CAPTURE_INTERRUPTED', false));
    } else if (kind === 'video') {
      this.#fail(errorOf('ERR_CAPTURE_VIDEO', true));
    } else if (!this.#sound.isFollowed || code !== 'source-lost') {
      this.#emitError(errorOf('ERR_CAPTURE_AUDIO', false));
    }
  }

  /**
   * Goes on with another native capture of the same stream, which the desktop
   * has granted once for all: its pictures have become others, and this
   * PipeWire does not follow.
   */
  async #reopen(error) {
    this.#isReopening = true;
    clearTimeout(this.#silenceTimer);
    this.#sound.hold();
    if (this.#interruptions.begin('video', error)) this.#emitError(error);
    await this.#runs.end();
    const isRestless = performance.now() - this.#reopenedAt < restlessMs;
    // Sound that has gone meanwhile must not end the picture.
    const sounds = [
      async () => this.#sound.now,
      async () => this.#sound.find(),
      async () => null,
    ];
    const changesUntil = performance.now() + changingMs;
    let failure = null;
    while (sounds.length > 0) {
      if (failure !== null || isRestless) await sleep(reopenPauseMs);
      const sound = await sounds[0]().catch(() => null);
      if (this.#isEnding) return;
      try {
        this.#beginAgain(sound, failure);
        this.#expectPicture(error);
        return;
      } catch (cause) {
        failure = cause;
        const isChanging = mayBeChanging(cause) &&
          performance.now() < changesUntil;
        if (!isChanging) sounds.shift();
      }
    }
    this.#fail(fromNative(failure, 'ERR_CAPTURE_VIDEO'));
  }

  /** Opens the stream once more if no picture comes. */
  #expectPicture(error) {
    if (this.#silences >= silentMs.length) return;
    this.#silenceTimer = setTimeout(() => {
      this.#silences += 1;
      this.#reopen(error);
    }, silentMs[this.#silences]);
    this.#silenceTimer.unref();
  }

  #expectNothing() {
    clearTimeout(this.#silenceTimer);
    this.#silenceTimer = null;
    this.#silences = 0;
  }

  #beginAgain(sound, failure) {
    const isSoundOver = this.#sound.now !== null && sound === null;
    try {
      this.#begin(this.#source.reopen(), sound);
    } finally {
      this.#source.opened();
    }
    for (const queue of this.#videoQueues) queue.interrupt();
    this.#audioQueue?.interrupt();
    this.#reopenedAt = performance.now();
    this.#interruptions.reopened();
    if (this.#bitsPerSecond !== null) {
      this.#native.setBitrate(this.#bitsPerSecond);
    }
    if (isSoundOver) {
      this.#emitError(new CaptureError('ERR_CAPTURE_AUDIO',
        `the sound has ended: ${failure.message}`,
        { cause: failure, isFatal: false }));
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
    this.#sound.stop();
    this.#interruptions.stop();
    this.#expectNothing();
    clearInterval(this.#keyframeTimer);
    try {
      await this.#runs.end();
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
}

module.exports = { CaptureSession };
