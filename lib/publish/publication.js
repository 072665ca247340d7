'use strict';

const { EventEmitter } = require('node:events');
const { setTimeout: sleep } = require('node:timers/promises');

const { Connection } = require('./connection.js');
const { abortError, fromCapture } = require('./errors.js');
const { KeyframeLimit } = require('./keyframe_limit.js');
const { OpusEncoder } = require('./opus_encoder.js');

const firstPauseMs = 500;
const longestPauseMs = 10_000;

/** What the figures are while there is no connection. */
const noFigures = Object.freeze({
  roundTripMs: null,
  loss: null,
  estimatedBitsPerSecond: null,
  keyframeRequests: 0,
  waitingMs: 0,
  branches: Object.freeze([]),
  audio: null,
  leftOut: null,
});

/** A capture on its way to a server; made by publish. */
class Publication {
  #capture;
  #options;
  #connection = null;
  #encoder = null;
  #readers = [];
  #stop = new AbortController();
  #ending = null;
  #finish;
  #keyframeTimer = null;
  #keyframeLimit = new KeyframeLimit();
  #reconnects = 0;
  #fullBitrate = null;

  constructor(capture, options) {
    this.#capture = capture;
    this.#options = options;
    this.events = new EventEmitter();
    this.state = 'connecting';
    /** Resolves, never rejects, with { reason, error }. */
    this.ended = new Promise((resolve) => {
      this.#finish = resolve;
    });
    capture.ended.then(() => this.#end('capture-ended'));
    options.signal?.addEventListener('abort', () => this.#end('abort'),
      { once: true, signal: this.#stop.signal });
  }

  /** Only publish calls this: the first connection, or its failure. */
  async start() {
    const { signal } = this.#options;
    try {
      if (signal?.aborted) throw abortError(signal);
      this.#read();
      await this.#connect();
    } catch (error) {
      const failure = signal?.aborted ? abortError(signal) : fromCapture(error);
      await this.#end('error', failure);
      throw failure;
    }
    this.#watch();
  }

  /**
   * Takes the packets of the capture from now on: a branch that has a reader,
   * or a program that is missing, is told before anything is offered.
   */
  #read() {
    const count = this.#options.isSimulcast ? this.#capture.branches.length : 1;
    for (let branch = 0; branch < count; branch += 1) {
      this.#pump(this.#capture.video({ branch }),
        (packet) => this.#connection?.sender?.takePicture(packet));
    }
    if (!this.#options.audio) return;
    this.#encoder = new OpusEncoder({
      bitsPerSecond: this.#options.audioBitrate,
      onPacket: (packet) => this.#connection?.sender?.takeSound(packet),
      onFailure: (error) => this.#end('error', error),
    });
    this.#pump(this.#capture.audio(), (packet) => this.#encoder.add(packet));
  }

  async #pump(reader, take) {
    this.#readers.push(reader);
    try {
      for await (const packet of reader) take(packet);
    } catch {
      // The end of the capture, which tells itself.
    }
  }

  #plan() {
    const { video, sync, encoder } = this.#capture.stats();
    const branches = this.#options.isSimulcast ? this.#capture.branches.length
      : 1;
    return {
      branchCount: branches,
      hasAudio: this.#options.audio,
      layers: video.layers,
      bitsPerSecond: video.branches.slice(0, branches)
        .reduce((sum, { bitsPerSecond, targetBitsPerSecond }) =>
          sum + Math.max(bitsPerSecond, targetBitsPerSecond ?? 0), 0),
      nowUs: () => Number(process.hrtime.bigint() / 1000n) - sync.clockOriginUs,
      requestKeyframe: () => this.#requestKeyframe(),
      setBitrateShare: encoder.isHardware ? this.#makeBitrateShare(video) : null,
    };
  }

  /** What sets a share of the bitrate that the capture was started with. */
  #makeBitrateShare({ branches }) {
    this.#fullBitrate ??= branches.reduce((sum, { targetBitsPerSecond }) =>
      sum + (targetBitsPerSecond ?? 0), 0);
    return (share) => {
      try {
        this.#capture.setBitrate(Math.round(this.#fullBitrate * share));
      } catch {
        // The capture has ended, which tells itself.
      }
    };
  }

  async #connect() {
    const connection = new Connection(this.#options, this.#plan());
    try {
      await connection.open(this.#stop.signal);
      this.#stop.signal.throwIfAborted();
    } catch (error) {
      await connection.close();
      throw error;
    }
    this.#connection = connection;
    this.#keyframeLimit = new KeyframeLimit();
    this.#requestKeyframe();
    this.#become('connected');
  }

  #become(state, error = null) {
    this.state = state;
    this.events.emit('state', { state, error });
  }

  async #watch() {
    while (this.#ending === null) {
      const error = await Promise.race([this.#connection.lost, this.ended]);
      if (this.#ending !== null) return;
      const connection = this.#connection;
      this.#connection = null;
      await connection.close();
      if (!this.#options.reconnect) {
        await this.#end('error', error);
        return;
      }
      await this.#reconnect(error);
    }
  }

  async #reconnect(cause) {
    this.#become('reconnecting', cause);
    let pauseMs = firstPauseMs;
    while (this.#ending === null) {
      try {
        await sleep(pauseMs, null, { signal: this.#stop.signal, ref: false });
        await this.#connect();
        this.#reconnects += 1;
        return;
      } catch (error) {
        if (this.#ending !== null) return;
        if (!error.mayPass) {
          await this.#end('error', error);
          return;
        }
        pauseMs = Math.min(pauseMs * 2, longestPauseMs);
      }
    }
  }

  #requestKeyframe() {
    if (this.#keyframeTimer !== null) return;
    const force = () => {
      this.#keyframeTimer = null;
      if (!this.#capture.isActive) return;
      this.#keyframeLimit.asked(performance.now());
      this.#capture.forceKeyframe();
    };
    const waitMs = this.#keyframeLimit.waitMs(performance.now());
    if (waitMs === 0) {
      force();
    } else {
      this.#keyframeTimer = setTimeout(force, waitMs);
      this.#keyframeTimer.unref();
    }
  }

  stats() {
    return {
      state: this.state,
      reconnects: this.#reconnects,
      ...this.#connection?.sender?.stats() ?? noFigures,
    };
  }

  /** Ends the publication, not the capture; may be called more than once. */
  stop() {
    return this.#end('stop');
  }

  [Symbol.asyncDispose]() {
    return this.stop();
  }

  #end(reason, error = null) {
    this.#ending ??= this.#shutDown(reason, error);
    return this.#ending;
  }

  async #shutDown(reason, error) {
    this.#stop.abort();
    clearTimeout(this.#keyframeTimer);
    await Promise.all(this.#readers.map((reader) => reader.return()));
    await Promise.all([this.#connection?.close(), this.#encoder?.close()]);
    this.#become('ended', error);
    this.#finish({ reason, error });
  }
}

module.exports = { Publication };
