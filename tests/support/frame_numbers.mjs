import { nalType, splitNalUnits } from './annex_b.mjs';

/** Reads the values at the start of one NAL unit. */
class BitReader {
  #bytes;
  #at = 8;  // behind the NAL unit's own first byte

  constructor(unit) {
    // A slice's first values are looked for, so its first bytes do. The third
    // of 0, 0, 3 was put there so that no start code appears.
    const bytes = [...unit.subarray(0, 64)];
    this.#bytes = bytes.filter((value, index) => !(value === 3 &&
      bytes[index - 1] === 0 && bytes[index - 2] === 0));
  }

  bits(count) {
    let value = 0;
    for (let bit = 0; bit < count; bit += 1, this.#at += 1) {
      const byte = this.#bytes[this.#at >> 3];
      value = value * 2 + ((byte >> (7 - (this.#at & 7))) & 1);
    }
    return value;
  }

  /** A number of variable length, as H.264 writes most of them. */
  number() {
    let zeroes = 0;
    while (this.bits(1) === 0) zeroes += 1;
    return 2 ** zeroes - 1 + this.bits(zeroes);
  }
}

/** How many bits a frame number has, of a Baseline stream's parameters. */
function frameNumberBits(unit) {
  const reader = new BitReader(unit);
  reader.bits(24);  // profile and level
  reader.number();
  return reader.number() + 4;
}

/**
 * Finds pictures that are missing from a stream: every picture carries the
 * number that follows the last one which others may refer to. A player that
 * lacks the reference of a picture shows a wrong one and says nothing.
 */
export class FrameNumbers {
  #bits;
  #lastReferenced;

  /** Takes the next picture; false when the one it builds on is missing. */
  take(accessUnit) {
    const units = splitNalUnits(accessUnit);
    const parameters = units.find(({ type }) => type === nalType.sps);
    if (parameters) this.#bits = frameNumberBits(parameters.unit);
    const slice = units.find(({ type }) =>
      type === nalType.slice || type === nalType.idrSlice);
    const reader = new BitReader(slice.unit);
    reader.number();  // place, kind and parameters of the slice
    reader.number();
    reader.number();
    const number = reader.bits(this.#bits);
    const isWhole = slice.type === nalType.idrSlice
      ? number === 0
      : number === (this.#lastReferenced + 1) % 2 ** this.#bits;
    if (slice.referenceIdc > 0) this.#lastReferenced = number;
    return isWhole;
  }
}
