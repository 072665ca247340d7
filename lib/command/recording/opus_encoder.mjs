import { once } from 'node:events';

import { startFfmpeg } from './ffmpeg.mjs';
import { CustomAudioEncoder, EncodedPacket } from './media_library.mjs';
import { OggPackets } from './ogg_packets.mjs';

const sampleRate = 48_000;
const packetSeconds = 0.02;

// The head and the names of the stream come before its packets.
const headPackets = 2;
const preSkipAt = 10;

/** Encodes sound with ffmpeg, packet by packet. */
export class OpusEncoder extends CustomAudioEncoder {
  /** Samples that it puts before the sound. */
  static delay = 312;

  #child;
  #ended;
  #ogg = new OggPackets();
  #count = 0;
  #meta;
  #isFlushed = false;

  static supports(codec) {
    return codec === 'opus';
  }

  init() {
    const { bitrate, numberOfChannels } = this.config;
    const { child, ended } = startFfmpeg([
      '-f', 's16le', '-ar', sampleRate, '-ac', numberOfChannels, '-i', 'pipe:0',
      '-c:a', 'libopus', '-b:a', bitrate, '-f', 'ogg',
      '-page_duration', packetSeconds * 1e6, '-flush_packets', '1', 'pipe:1',
    ].map(String), { output: 'pipe' });
    this.#child = child;
    child.stdout.on('data', (bytes) => this.#take(bytes));
    this.#ended = ended.then(({ isGood, message }) => {
      if (!isGood || !this.#isFlushed) {
        this.onError(new Error(`the sound cannot be encoded: ${message}`));
      }
    });
  }

  #take(bytes) {
    try {
      for (const packet of this.#ogg.add(bytes)) this.#put(packet);
    } catch (error) {
      this.#child.kill('SIGKILL');
      this.onError(error);
    }
  }

  #put(data) {
    this.#count += 1;
    const { numberOfChannels } = this.config;
    if (this.#count === 1) {
      const description = new Uint8Array(data);
      // What is cut off at the beginning is cut off before encoding.
      description.fill(0, preSkipAt, preSkipAt + 2);
      this.#meta = { decoderConfig: {
        codec: 'opus', sampleRate, numberOfChannels, description,
      } };
    }
    if (this.#count <= headPackets) return;
    const seconds = (this.#count - headPackets - 1) * packetSeconds;
    this.onPacket(new EncodedPacket(data, 'key', seconds, packetSeconds),
      this.#meta);
  }

  async encode(sample) {
    const data = Buffer.alloc(sample.allocationSize({ planeIndex: 0 }));
    sample.copyTo(data, { planeIndex: 0 });
    const { stdin } = this.#child;
    if (!stdin.write(data) && stdin.writable) {
      await Promise.race([once(stdin, 'drain').catch(() => {}), this.#ended]);
    }
  }

  async flush() {
    this.#isFlushed = true;
    this.#child.stdin.end();
    await this.#ended;
  }

  close() {
    this.#isFlushed = true;
    this.#child.kill('SIGKILL');
  }
}
