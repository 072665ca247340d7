'use strict';

// Packets come this much later than others at most.
const rememberedUs = 10_000_000;

/**
 * The parts of a capture's time that are left out of what is delivered; all
 * times are in microseconds. The last one may be open: nobody knows yet where
 * it ends.
 */
class Cuts {
  #cuts = [];
  #forgottenUs = 0;

  /** All that was left out, without an open cut. */
  get totalUs() {
    return this.#cuts.reduce((sum, { beginUs, endUs }) =>
      (endUs === Infinity ? sum : sum + endUs - beginUs), this.#forgottenUs);
  }

  /** True when nothing is left out of what may still come. */
  get isEmpty() {
    return this.#cuts.length === 0;
  }

  open(beginUs) {
    this.#cuts.push({ beginUs, endUs: Infinity });
    while (this.#cuts[0].endUs < beginUs - rememberedUs) {
      const old = this.#cuts.shift();
      this.#forgottenUs += old.endUs - old.beginUs;
    }
  }

  close(endUs) {
    this.#cuts.at(-1).endUs = endUs;
  }

  /** What is kept, in order, each with the length left out before it. */
  *#kept() {
    let beginUs = -Infinity;
    let movedUs = this.#forgottenUs;
    for (const cut of this.#cuts) {
      yield { beginUs, endUs: cut.beginUs, movedUs };
      beginUs = cut.endUs;
      movedUs += cut.endUs - cut.beginUs;
    }
    if (beginUs < Infinity) yield { beginUs, endUs: Infinity, movedUs };
  }

  /**
   * When a picture is delivered that is to be seen for `apartUs` at least, or
   * null when it is left out.
   */
  placePicture(timestampUs, apartUs) {
    for (const { beginUs, endUs, movedUs } of this.#kept()) {
      if (timestampUs >= beginUs && timestampUs + apartUs <= endUs) {
        return timestampUs - movedUs;
      }
    }
    return null;
  }

  /** The parts of a span that are delivered, as [from, to, moved by]. */
  partsOf(fromUs, toUs) {
    const parts = [];
    for (const { beginUs, endUs, movedUs } of this.#kept()) {
      const [from, to] = [Math.max(fromUs, beginUs), Math.min(toUs, endUs)];
      if (from < to) parts.push([from, to, movedUs]);
    }
    return parts;
  }
}

module.exports = { Cuts };
