import { accessSync, constants, statSync } from 'node:fs';
import path from 'node:path';
import { setImmediate as nextTurn } from 'node:timers/promises';

import { MediaFile, usualAudio } from './media_file.mjs';
import { numberedName } from './numbered_name.mjs';
import { OutputFile } from './output_file.mjs';
import { ReplayBuffer } from './replay_buffer.mjs';

// Encoding sound at one go would keep the capture from being read.
const packetsPerTurn = 16;

/** What a replay takes of the memory at most. */
export const mostReplayBytes = 512 * 1024 * 1024;

function requireFolder(name) {
  const folder = path.dirname(name);
  if (statSync(folder, { throwIfNoEntry: false })?.isDirectory() !== true) {
    throw new Error(`the folder ${folder} does not exist`);
  }
  try {
    accessSync(folder, constants.W_OK);
  } catch (error) {
    throw Object.assign(new Error(`nothing can be written into ${folder}`),
      { code: error.code });
  }
}

/**
 * Keeps the last seconds of a capture in memory, and writes them into a new
 * numbered file whenever it is asked to.
 */
export class Replay {
  #name;
  #buffer;
  #audio;
  #onFile;
  #onTaken;
  #hasAudio = false;
  #number = 0;
  #pictures = 0;
  #saving = Promise.resolve();

  constructor(name, { seconds, audio = usualAudio, onFile = () => {},
    onTaken = () => {} }) {
    requireFolder(name);
    this.#name = name;
    this.#buffer = new ReplayBuffer({ seconds, mostBytes: mostReplayBytes });
    this.#audio = audio;
    this.#onFile = onFile;
    this.#onTaken = onTaken;
  }

  get pictures() {
    return this.#pictures;
  }

  /** Bytes in memory. */
  get size() {
    return this.#buffer.bytes;
  }

  async begin({ hasAudio }) {
    this.#hasAudio = hasAudio;
  }

  async addVideo(packet) {
    this.#pictures += 1;
    this.#buffer.addVideo(packet);
  }

  async addAudio(packet) {
    this.#buffer.addAudio(packet);
  }

  /**
   * Writes what is in memory now; the file that was asked for before is written
   * first. Rejects when it cannot be written, which ends nothing.
   */
  save() {
    const packets = this.#buffer.read();
    const saved = this.#saving.then(() => this.#write(packets));
    this.#saving = saved.catch(() => {});
    return saved;
  }

  async #write(packets) {
    if (packets.length === 0) throw new Error('there is nothing to save yet');
    const output = this.#take();
    const file = new MediaFile(output,
      { hasAudio: this.#hasAudio, audio: this.#audio });
    try {
      await file.start();
      for (const [index, packet] of packets.entries()) {
        if (index % packetsPerTurn === 0) await nextTurn();
        await (packet.type === 'video' ? file.addVideo(packet)
          : file.addAudio(packet));
      }
    } finally {
      await file.close();
    }
    const { name, seconds, pictures, size } = file;
    this.#onFile({ name, seconds, pictures, size });
  }

  /** The next file that is not there yet. */
  #take() {
    for (;;) {
      this.#number += 1;
      try {
        const output =
          new OutputFile(numberedName(this.#name, this.#number));
        this.#onTaken(output);
        return output;
      } catch (error) {
        if (error.cause?.code !== 'EEXIST') throw error;
      }
    }
  }

  /** Waits for the files that are being written. */
  async close() {
    await this.#saving;
  }
}
