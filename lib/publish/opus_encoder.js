'use strict';

const { describeFailure, endProgram, startProgram } =
  require('../session/programs.js');
const { PublishError } = require('./errors.js');
const { FrameReader, makeFrame } = require('./frames.js');

const program = 'linux-capture-opus';
const timeSize = 8;
const mostWaitingBytes = 1 << 20;

/** The program that encodes the sound; packets go to `onPacket`. */
class OpusEncoder {
  #program;
  #isClosed = false;

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

  add({ timestampUs, samples }) {
    const { stdin } = this.#program.child;
    if (this.#isClosed || stdin.writableLength > mostWaitingBytes) return;
    const bytes =
      Buffer.from(samples.buffer, samples.byteOffset, samples.byteLength);
    const payload = Buffer.allocUnsafe(timeSize + bytes.length);
    payload.writeBigInt64BE(BigInt(Math.round(timestampUs)), 0);
    bytes.copy(payload, timeSize);
    stdin.write(makeFrame('a', payload));
  }

  async close() {
    this.#isClosed = true;
    await endProgram(this.#program);
  }
}

module.exports = { OpusEncoder };
