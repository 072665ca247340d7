'use strict';

// The frames of the helper programs: a length of four bytes, then as many bytes,
// of which the first is the kind.
const headerSize = 4;
const longestFrame = 65_536;

function makeFrame(kind, payload) {
  const frame = Buffer.allocUnsafe(headerSize + 1 + payload.length);
  frame.writeUInt32BE(1 + payload.length);
  frame.write(kind, headerSize, 'latin1');
  payload.copy(frame, headerSize + 1);
  return frame;
}

/** Cuts what a program writes into frames, for `take(kind, payload)`. */
class FrameReader {
  #waiting = Buffer.alloc(0);
  #take;

  constructor(take) {
    this.#take = take;
  }

  add(bytes) {
    let rest = this.#waiting.length === 0 ? bytes
      : Buffer.concat([this.#waiting, bytes]);
    while (rest.length >= headerSize) {
      const length = rest.readUInt32BE();
      if (length < 1 || length > longestFrame) {
        throw new Error('a program beside the module wrote no frames');
      }
      if (rest.length < headerSize + length) break;
      const frame = rest.subarray(headerSize, headerSize + length);
      rest = rest.subarray(headerSize + length);
      this.#take(String.fromCharCode(frame[0]), frame.subarray(1));
    }
    // A copy, which does not hold on to all that was read with it.
    this.#waiting = rest.length === 0 ? rest : Buffer.from(rest);
  }
}

module.exports = { FrameReader, makeFrame };
