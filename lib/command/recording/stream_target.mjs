import { setTimeout as sleep } from 'node:timers/promises';

import { startFfmpeg } from './ffmpeg.mjs';
import { MediaFile } from './media_file.mjs';
import { PipeOutput } from './pipe_output.mjs';
import { shownAddress, withoutSecrets, wrappingOf } from
  './stream_address.mjs';

// A server that comes back is met soon, one that stays away is left in peace.
const firstRetryMs = 500;
const longestRetryMs = 10_000;

// How long ffmpeg may take for what it still has when all is over.
const goodbyeMs = 3000;

/** One ffmpeg, for as long as its connection lasts. */
class Connection {
  #child;
  #ended;
  #file;
  #timer = null;
  #isEnding = false;
  isLive = false;

  /** `onEnd` gets why it has ended, unless it was asked to. */
  constructor(address, { hasAudio, audio, onLive, onEnd }) {
    const { child, ended } = startFfmpeg([
      '-nostats', '-progress', 'pipe:1', '-stats_period', '0.2',
      // The beginning of Matroska tells all that there is to find out.
      '-analyzeduration', '0', '-f', 'matroska', '-i', 'pipe:0',
      '-map', '0', '-c', 'copy', '-flush_packets', '1',
      ...wrappingOf(address), address,
    ], { output: 'pipe' });
    this.#child = child;
    child.stdout.on('data', (text) => {
      // Something has reached the other side.
      if (this.isLive || !/total_size=[1-9]/.test(text)) return;
      this.isLive = true;
      onLive();
    });
    this.#ended = ended.then(({ isGood, message }) => {
      if (!this.#isEnding) onEnd(isGood ? 'ffmpeg has ended' : message);
    });
    this.#file = new MediaFile(
      new PipeOutput('ffmpeg', { stream: child.stdin }), { hasAudio, audio });
  }

  get file() {
    return this.#file;
  }

  /** Nothing more comes: what a server does not take soon is given up. */
  hurry() {
    this.#isEnding = true;
    this.#timer ??=
      setTimeout(() => this.#child.kill('SIGKILL'), goodbyeMs);
  }

  async end() {
    this.hurry();
    await this.#file.close().catch(() => {});
    this.#child.stdin.destroy();
    await this.#ended;
    clearTimeout(this.#timer);
  }
}

/**
 * A recording that goes to a server by way of ffmpeg. When the server goes
 * away, it is tried again until the recording ends; what comes meanwhile is
 * lost. A server that was never reached ends the recording.
 */
export class StreamTarget {
  #address;
  #audio;
  #hasAudio = false;
  #onTrouble;
  #onRecovered;
  #connection = null;
  #wasLive = false;
  #retryMs = firstRetryMs;
  #isWaiting = false;
  #failure = null;
  #done = { seconds: 0, pictures: 0, size: 0 };
  #ends = new Set();
  #isClosed = false;
  reconnections = 0;

  constructor(address,
    { audio, onTrouble = () => {}, onRecovered = () => {} }) {
    this.#address = address;
    this.#audio = audio;
    this.#onTrouble = onTrouble;
    this.#onRecovered = onRecovered;
    this.name = shownAddress(address);
  }

  #sum(key) {
    return this.#done[key] + (this.#connection?.file[key] ?? 0);
  }

  get seconds() {
    return this.#sum('seconds');
  }

  get pictures() {
    return this.#sum('pictures');
  }

  get size() {
    return this.#sum('size');
  }

  async begin({ hasAudio }) {
    this.#hasAudio = hasAudio;
  }

  async addVideo(packet) {
    if (this.#failure !== null) throw this.#failure;
    if (this.#connection === null && !this.#isWaiting && packet.isKeyframe) {
      await this.#connect();
    }
    await this.#add((file) => file.addVideo(packet));
  }

  async addAudio(packet) {
    await this.#add((file) => file.addAudio(packet));
  }

  /** What ffmpeg no longer takes is told by its end. */
  async #add(write) {
    if (this.#connection === null) return;
    await write(this.#connection.file).catch(() => {});
  }

  async #connect() {
    const connection = new Connection(this.#address, {
      hasAudio: this.#hasAudio,
      audio: this.#audio,
      onLive: () => this.#onLive(),
      onEnd: (message) => this.#onEnd(connection, message),
    });
    this.#connection = connection;
    await connection.file.start();
  }

  #onLive() {
    if (this.#retryMs > firstRetryMs) {
      this.reconnections += 1;
      this.#onRecovered(`${this.name} takes the stream again`);
    }
    this.#wasLive = true;
    this.#retryMs = firstRetryMs;
  }

  #onEnd(connection, text) {
    if (this.#isClosed) return;
    this.#forget(connection);
    const said = withoutSecrets(text, this.#address);
    const message = said.startsWith(this.name) ? said : `${this.name}: ${said}`;
    if (!this.#wasLive) {
      this.#failure = new Error(message);
      return;
    }
    if (this.#retryMs === firstRetryMs) {
      this.#onTrouble(`${message}; it is tried again`);
    }
    this.#wait();
  }

  #forget(connection) {
    if (this.#wasLive) {
      for (const key of Object.keys(this.#done)) {
        this.#done[key] += connection.file[key];
      }
    }
    this.#connection = null;
    const end = connection.end().then(() => this.#ends.delete(end));
    this.#ends.add(end);
  }

  async #wait() {
    this.#isWaiting = true;
    const waitMs = this.#retryMs;
    this.#retryMs = Math.min(longestRetryMs, waitMs * 2);
    await sleep(waitMs, null, { ref: false });
    this.#isWaiting = false;
  }

  hurry() {
    this.#connection?.hurry();
  }

  async close() {
    this.#isClosed = true;
    if (this.#connection !== null) this.#forget(this.#connection);
    await Promise.all(this.#ends);
    if (this.#failure !== null) throw this.#failure;
  }
}
