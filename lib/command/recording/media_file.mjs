import { AudioTimeline } from './audio_timeline.mjs';
import { avcCodec } from './avc_description.mjs';
import { OpenMatroska } from './matroska_start.mjs';
import {
  AudioSample, AudioSampleSource, EncodedPacket, EncodedVideoPacketSource,
  MkvOutputFormat, Mp4OutputFormat, Output, StreamTarget, registerAacEncoder,
  registerEncoder,
} from './media_library.mjs';
import { OpusEncoder } from './opus_encoder.mjs';

const sampleRate = 48_000;
const channels = 2;

// The encoders put samples of their own before the sound. The file does not say
// so, so as many samples are left out of the beginning instead: what is played
// then stands where it belongs.
const encoderDelays = Object.freeze({ aac: 1024, opus: OpusEncoder.delay });

export const usualAudio = Object.freeze({ codec: 'aac', bitrate: 160_000 });

// What is lost at most when the process is killed, besides what the next
// keyframe is waited for.
const pieceSeconds = 1;

const formats = {
  mp4: () => new Mp4OutputFormat({
    fastStart: 'fragmented',
    minimumFragmentDuration: pieceSeconds,
  }),
  mkv: () => new MkvOutputFormat({ minimumClusterDuration: pieceSeconds }),
  // For who reads it as it comes: nothing is written anew.
  stream: () => new MkvOutputFormat(
    { minimumClusterDuration: pieceSeconds, appendOnly: true }),
};

let areEncodersRegistered = false;

function registerEncoders() {
  if (areEncodersRegistered) return;
  registerAacEncoder();
  registerEncoder(OpusEncoder);
  areEncodersRegistered = true;
}

/** Writes at once what it is given: a killed process has lost little. */
function fileStream(file) {
  const matroska = file.container === 'mkv' ? new OpenMatroska() : null;
  return new WritableStream({
    write({ data, position }) {
      matroska?.leaveOpen(data, position);
      return file.write(data, position);
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

/**
 * One film with H.264 and, if wanted, AAC or Opus: an MP4 or Matroska file, or
 * a stream of Matroska.
 */
export class MediaFile {
  #file;
  #output;
  #video = new EncodedVideoPacketSource('avc');
  #audio = null;
  #encoderDelayUs;
  #timeline = null;
  #isDescribed = false;
  #originUs = null;
  #endUs = 0;
  #pictures = 0;
  #ahead = [];
  #last = Promise.resolve();
  #failure = null;

  /**
   * `file` is what `write`s the bytes, for instance an OutputFile; it is closed
   * with this one.
   */
  constructor(file, { hasAudio = false, audio = usualAudio } = {}) {
    this.#file = file;
    this.#output = new Output({
      format: formats[file.container](),
      target: new StreamTarget(fileStream(file)),
    });
    this.#output.addVideoTrack(this.#video);
    if (hasAudio) {
      registerEncoders();
      this.#audio = new AudioSampleSource(audio);
      this.#encoderDelayUs = encoderDelays[audio.codec] / sampleRate * 1e6;
      this.#timeline = new AudioTimeline({ sampleRate, channels });
      this.#output.addAudioTrack(this.#audio);
    }
  }

  get name() {
    return this.#file.name;
  }

  /** Seconds of picture so far. */
  get seconds() {
    return this.#endUs / 1e6;
  }

  get pictures() {
    return this.#pictures;
  }

  get size() {
    return this.#file.size;
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
      if (this.#failure !== null) throw this.#failure;
      return write();
    });
    this.#last = result.catch((error) => {
      this.#failure ??= error;
    });
    return result;
  }

  async #addVideo(packet) {
    this.#originUs ??= packet.timestampUs;
    const timestampUs = packet.timestampUs - this.#originUs;
    this.#endUs = timestampUs + packet.durationUs;
    this.#pictures += 1;
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
        this.#timeline.add(atUs - this.#encoderDelayUs, samples));
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

  /** The sound of the last moment, and silence where there was none. */
  async #completeSound() {
    for (const { timestampUs, samples } of this.#ahead) {
      const atUs = timestampUs - this.#originUs;
      const frames =
        Math.round((this.#endUs - atUs) / 1e6 * sampleRate);
      if (frames <= 0) break;
      await this.#write(this.#timeline.add(atUs - this.#encoderDelayUs,
        samples.subarray(0, frames * channels)));
    }
    await this.#write(this.#timeline.finish(this.#endUs));
  }

  /**
   * Completes the file, or leaves it as it is when it cannot be written or its
   * sound cannot be encoded: it plays up to there.
   */
  async close() {
    await this.#last;
    try {
      if (this.#isDescribed && this.#file.failure === null &&
        this.#failure === null) {
        if (this.#timeline !== null) await this.#completeSound();
        await this.#output.finalize();
      } else {
        await this.#output.cancel().catch(() => {});
      }
    } finally {
      await this.#file.close();
    }
    if (this.#file.failure !== null) throw this.#file.failure;
    if (this.#failure !== null) throw this.#failure;
  }
}
