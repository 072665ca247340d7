const capture = 'OggS';
const headerBytes = 27;
const wholeSegment = 255;

/** Takes the bytes of one Ogg stream apart into its packets. */
export class OggPackets {
  #bytes = Buffer.alloc(0);
  #begun = [];

  /** The packets that are complete with these bytes. */
  add(bytes) {
    this.#bytes = Buffer.concat([this.#bytes, bytes]);
    const packets = [];
    for (;;) {
      const page = this.#bytes;
      if (page.length < headerBytes) return packets;
      if (page.toString('latin1', 0, 4) !== capture) {
        throw new Error('what the encoder sends is no Ogg');
      }
      const count = page[headerBytes - 1];
      let at = headerBytes + count;
      const sizes = page.subarray(headerBytes, at);
      const size = sizes.reduce((sum, value) => sum + value, at);
      if (sizes.length < count || page.length < size) return packets;
      for (const segment of sizes) {
        this.#begun.push(page.subarray(at, at + segment));
        at += segment;
        if (segment === wholeSegment) continue;
        packets.push(Buffer.concat(this.#begun));
        this.#begun = [];
      }
      this.#bytes = page.subarray(size);
    }
  }
}
