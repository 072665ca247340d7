'use strict';

// The frames of the helper programs: a length of four bytes, then as many bytes,
// of which the first is the kind.
const headerSize = 4;
const longestFrame = 65_536;

/** Frames of one kind behind each other, for a single write. */
function makeFrames(kind, payloads) {
  const overhead = headerSize + 1;
  const size = payloads.reduce((sum, { length }) => sum + overhead + length, 0);
  const frames = Buffer.allocUnsafe(size);
  const kindByte = kind.charCodeAt(0);
  let at = 0;
  for (const payload of payloads) {
    frames.writeUInt32BE(1 + payload.length, at);
    frames[at + headerSize] = kindByte;
    frames.set(payload, at + overhead);
    at += overhead + payload.length;
  }
  return frames;
}

const makeFrame = (kind, payload) => makeFrames(kind, [payload]);

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

module.exports = { FrameReader, makeFrame, makeFrames };
