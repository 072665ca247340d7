'use strict';

const { describeFailure, endProgram, startProgram } =
  require('../session/programs.js');
const { PublishError } = require('./errors.js');
const { FrameReader, makeFrames } = require('./frames.js');

const program = 'linux-capture-opus';
const timeSize = 8;
const sampleRate = 48_000;
const channels = 2;
const packetFrames = sampleRate / 50;
// As the program sees it: sound behind a gap begins a new packet.
const jumpUs = 15_000;
const mostWaitingBytes = 1 << 20;

/** The program that encodes the sound; packets go to `onPacket`. */
class OpusEncoder {
  #program;
  #isClosed = false;
  #waiting = [];
  #waitingFrames = 0;
  #nextUs = 0;

  constructor({ bitsPerSecond, onPacket, onFailure }) {
    const reader = new FrameReader((_, payload) => {
      if (this.#isClosed || payload.length < timeSize) return;
      onPacket({
        timestampUs: Number(payload.readBigInt64BE(0)),
        data: payload.subarray(timeSize),
      });
    });
    this.#program = startProgram(program, ['--bitrate', `${bitsPerSecond}`],
      {
        onData: (bytes) => {
          try {
            reader.add(bytes);
          } catch (error) {
            fail(error.message);
          }
        },
      });
    const fail = (message) => {
      if (this.#isClosed) return;
      this.#isClosed = true;
      onFailure(new PublishError('ERR_PUBLISH_PROGRAM', message));
    };
    this.#program.ended.then((end) => fail(describeFailure(program, end)));
  }

  /**
   * What comes of a packet's length is written together: the program could do
   * nothing with less but wake up.
   */
  add({ timestampUs, samples }) {
    if (this.#isClosed) return;
    if (Math.abs(timestampUs - this.#nextUs) > jumpUs) this.#write();
    const payload = Buffer.allocUnsafe(timeSize + samples.byteLength);
    payload.writeBigInt64BE(BigInt(Math.round(timestampUs)), 0);
    payload.set(new Uint8Array(
      samples.buffer, samples.byteOffset, samples.byteLength), timeSize);
    this.#waiting.push(payload);
    const frames = samples.length / channels;
    this.#waitingFrames += frames;
    this.#nextUs = timestampUs + frames * 1e6 / sampleRate;
    if (this.#waitingFrames >= packetFrames) this.#write();
  }

  #write() {
    const { stdin } = this.#program.child;
    if (this.#waiting.length > 0 && stdin.writableLength <= mostWaitingBytes) {
      stdin.write(makeFrames('a', this.#waiting));
    }
    this.#waiting = [];
    this.#waitingFrames = 0;
  }

  async close() {
    this.#isClosed = true;
    await endProgram(this.#program);
  }
}

module.exports = { OpusEncoder };
