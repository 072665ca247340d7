import path from 'node:path';

import { AudioTimeline } from './audio_timeline.mjs';
import { avcCodec } from './avc_description.mjs';
import { leaveOpen } from './matroska_start.mjs';
import {
  AudioSample, AudioSampleSource, EncodedPacket, EncodedVideoPacketSource,
  MkvOutputFormat, Mp4OutputFormat, Output, StreamTarget, registerAacEncoder,
} from './media_library.mjs';

const sampleRate = 48_000;
const channels = 2;
const audioBitrate = 160_000;

// The encoder puts one block of its own before the sound. The file does not
// say so, so as many samples are left out of the beginning instead: what is
// played then stands where it belongs.
const encoderDelayUs = 1024 / sampleRate * 1e6;

// What is lost at most when the process is killed, besides what the next
// keyframe is waited for.
const pieceSeconds = 1;

const formats = {
  '.mp4': () => new Mp4OutputFormat({
    fastStart: 'fragmented',
    minimumFragmentDuration: pieceSeconds,
  }),
  '.mkv': () => new MkvOutputFormat({ minimumClusterDuration: pieceSeconds }),
};

export const fileEndings = Object.freeze(Object.keys(formats));

let isEncoderRegistered = false;

function registerEncoder() {
  if (!isEncoderRegistered) registerAacEncoder();
  isEncoderRegistered = true;
}

/** Writes at once what it is given: a killed process has lost little. */
function fileStream(file, { isMatroska }) {
  let isPrepared = !isMatroska;
  return new WritableStream({
    write({ data, position }) {
      if (!isPrepared) isPrepared = leaveOpen(data);
      file.write(data, position);
    },
  });
}

function describe(packet) {
  return {
    codec: avcCodec(packet.data),
    codedWidth: packet.width,
    codedHeight: packet.height,
    colorSpace: {
      primaries: 'bt709', transfer: 'bt709', matrix: 'bt709', fullRange: true,
    },
  };
}

/** One MP4 or Matroska file with H.264 and, if wanted, AAC. */
export class MediaFile {
  #file;
  #output;
  #video = new EncodedVideoPacketSource('avc');
  #audio = null;
  #timeline = null;
  #isDescribed = false;
  #originUs = null;
  #endUs = 0;
  #ahead = [];
  #last = Promise.resolve();

  /** `file` is an OutputFile; it is closed with this one. */
  constructor(file, { hasAudio = false } = {}) {
    const ending = path.extname(file.name).toLowerCase();
    this.#file = file;
    this.#output = new Output({
      format: formats[ending](),
      target: new StreamTarget(
        fileStream(file, { isMatroska: ending === '.mkv' })),
    });
    this.#output.addVideoTrack(this.#video);
    if (hasAudio) {
      registerEncoder();
      this.#audio = new AudioSampleSource(
        { codec: 'aac', bitrate: audioBitrate });
      this.#timeline = new AudioTimeline({ sampleRate, channels });
      this.#output.addAudioTrack(this.#audio);
    }
  }

  /** Seconds of picture so far. */
  get seconds() {
    return this.#endUs / 1e6;
  }

  start() {
    return this.#output.start();
  }

  /** The first picture is the beginning of the file, and a keyframe. */
  addVideo(packet) {
    return this.#inOrder(() => this.#addVideo(packet));
  }

  addAudio(packet) {
    return this.#inOrder(() => this.#addAudio(packet));
  }

  /** Picture and sound come from two readers; the file has one end. */
  #inOrder(write) {
    const result = this.#last.then(() => {
      if (this.#file.failure !== null) throw this.#file.failure;
      return write();
    });
    this.#last = result.catch(() => {});
    return result;
  }

  async #addVideo(packet) {
    this.#originUs ??= packet.timestampUs;
    const timestampUs = packet.timestampUs - this.#originUs;
    this.#endUs = timestampUs + packet.durationUs;
    const encoded = new EncodedPacket(
      packet.data, packet.isKeyframe ? 'key' : 'delta', timestampUs / 1e6,
      packet.durationUs / 1e6);
    await this.#video.add(encoded, this.#isDescribed ? undefined
      : { decoderConfig: describe(packet) });
    this.#isDescribed = true;
    if (this.#timeline !== null) {
      await this.#writeSound();
      await this.#write(this.#timeline.keepUp(timestampUs));
    }
  }

  /** Sound waits for its picture: the file ends where the picture does. */
  async #addAudio(packet) {
    this.#ahead.push(packet);
    await this.#writeSound();
  }

  async #writeSound() {
    while (this.#ahead.length > 0 && this.#originUs !== null) {
      const [{ timestampUs, durationUs, samples }] = this.#ahead;
      const atUs = timestampUs - this.#originUs;
      if (atUs + durationUs > this.#endUs) return;
      this.#ahead.shift();
      await this.#write(
        this.#timeline.add(atUs - encoderDelayUs, samples));
    }
  }

  async #write(pieces) {
    for (const { samples, timestampUs } of pieces) {
      const sample = new AudioSample({
        data: samples,
        format: 's16',
        numberOfChannels: channels,
        sampleRate,
        timestamp: timestampUs / 1e6,
      });
      await this.#audio.add(sample);
      sample.close();
    }
  }

  /** Completes the file, or leaves it as it is when it cannot be written. */
  async close() {
    await this.#last;
    try {
      if (this.#isDescribed && this.#file.failure === null) {
        if (this.#timeline !== null) {
          await this.#write(this.#timeline.finish(this.#endUs));
        }
        await this.#output.finalize();
      } else {
        await this.#output.cancel();
      }
    } finally {
      this.#file.close();
    }
    if (this.#file.failure !== null) throw this.#file.failure;
  }
}
