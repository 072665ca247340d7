import process from 'node:process';

import session from '../session/index.js';
import { encodeAudio, encodeVideo } from './page/wire.mjs';
import { farewell, greeting, statistics, troubles } from './reports.mjs';
import { MixLevel, SourceLevels } from './sound_levels.mjs';

const levelPeriodMs = 100;
const statisticsPeriodMs = 500;

// Each takes many times the bits of another picture, of every branch.
const keyframePeriodMs = 300;

const monotonicMs = () => Number(process.hrtime.bigint()) / 1e6;

/** Hands what a capture delivers to all open pages. */
export class Feed {
  #capture;
  #clients = new Set();
  #mix = new MixLevel();
  #sources = new SourceLevels();
  #originMs;
  #timers = [];
  #keyframeAtMs = -Infinity;
  #keyframeTimer = null;
  #troubles = new Map();
  #onError = ({ code, nativeCode, message, isFatal }) => {
    if (isFatal) return;
    if (code === 'ERR_CAPTURE_INTERRUPTED') {
      this.#troubles.set(nativeCode, message);
      this.#tell(troubles(this.#troubles));
    } else {
      this.#tell({ type: 'notice', text: message });
    }
  };
  #onRecovered = ({ error, message }) => {
    this.#troubles.delete(error.nativeCode);
    this.#tell(troubles(this.#troubles, message));
  };

  #onPaused = () => this.#tell({ type: 'paused', isPaused: true });
  #onResumed = () => {
    this.#readOrigin();
    this.#tell({ type: 'paused', isPaused: false });
  };

  constructor(capture) {
    this.#capture = capture;
    this.#readOrigin();
    for (const { branch } of capture.branches) this.#pumpVideo(branch);
    if (capture.hasAudio) {
      this.#pumpAudio();
      this.#every(levelPeriodMs, () => this.#report(this.#levels()));
    }
    this.#every(statisticsPeriodMs, () => this.#report(statistics(capture)));
    capture.events.on('error', this.#onError);
    capture.events.on('recovered', this.#onRecovered);
    capture.events.on('paused', this.#onPaused);
    capture.events.on('resumed', this.#onResumed);
  }

  add(client) {
    client.send(greeting(this.#capture));
    if (this.#troubles.size > 0) client.send(troubles(this.#troubles));
    this.#clients.add(client);
  }

  remove(client) {
    this.#clients.delete(client);
  }

  /** Does what a page asks for; see page_requests.mjs. */
  handle(client, request) {
    if (!this.#capture.isActive) return;
    switch (request.type) {
      case 'watch':
        if (client.watch(request)) this.#forceKeyframe();
        break;
      case 'keyframe':
        this.#forceKeyframe();
        break;
      case 'pause':
        if (request.isPaused) this.#capture.pause();
        else this.#capture.resume();
        break;
      case 'bitrate':
        this.#setBitrate(client, request.bitsPerSecond);
        break;
    }
  }

  /** Stops, and tells all pages how the capture ended if it did. */
  stop(end) {
    for (const timer of this.#timers) clearInterval(timer);
    clearTimeout(this.#keyframeTimer);
    this.#capture.events.off('error', this.#onError);
    this.#capture.events.off('recovered', this.#onRecovered);
    this.#capture.events.off('paused', this.#onPaused);
    this.#capture.events.off('resumed', this.#onResumed);
    if (end !== null) this.#tell(farewell(end));
  }

  #every(periodMs, work) {
    this.#timers.push(setInterval(() => {
      if (this.#capture.isActive) work();
    }, periodMs));
  }

  #tell(object) {
    for (const client of this.#clients) client.send(object);
  }

  #report(object) {
    for (const client of this.#clients) {
      client.sendReport(
        object.type === 'stats' ? { ...object, withheld: client.dropped }
          : object);
    }
  }

  #levels() {
    return {
      type: 'levels',
      mix: this.#mix.read(),
      sources: this.#sources.read(this.#capture.stats().audio),
    };
  }

  /** A pause moves the times of all that comes after it. */
  #readOrigin() {
    this.#originMs = this.#capture.stats().sync.clockOriginUs / 1000;
  }

  /** Session time as milliseconds since 1970. */
  #wallMs(timestampUs) {
    return timestampUs / 1000 + this.#originMs + Date.now() - monotonicMs();
  }

  async #pumpVideo(branch) {
    try {
      for await (const packet of this.#capture.video({ branch })) {
        if (this.#clients.size === 0) continue;
        const capturedAtMs = this.#wallMs(packet.timestampUs);
        const message = encodeVideo({ ...packet, capturedAtMs });
        for (const client of this.#clients) client.sendVideo(packet, message);
      }
    } catch {
      // The end of the capture tells it.
    }
  }

  async #pumpAudio() {
    try {
      for await (const packet of this.#capture.audio()) {
        this.#mix.add(packet);
        if (this.#clients.size === 0) continue;
        const message = encodeAudio(packet);
        for (const client of this.#clients) client.sendAudio(message);
      }
    } catch {
      // As above.
    }
  }

  /** Now, or as soon as the last one is long enough ago. */
  #forceKeyframe() {
    if (this.#keyframeTimer !== null) return;
    const waitMs = this.#keyframeAtMs + keyframePeriodMs - monotonicMs();
    const force = () => {
      this.#keyframeTimer = null;
      if (!this.#capture.isActive) return;
      this.#keyframeAtMs = monotonicMs();
      this.#capture.forceKeyframe();
    };
    if (waitMs <= 0) force();
    else this.#keyframeTimer = setTimeout(force, waitMs);
  }

  #setBitrate(client, bitsPerSecond) {
    try {
      this.#capture.setBitrate(bitsPerSecond);
    } catch (error) {
      if (!(error instanceof session.CaptureError)) throw error;
      client.send({ type: 'notice', text: error.message });
    }
  }
}
