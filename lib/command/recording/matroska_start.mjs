const segmentId = 0x18538067;
const seekHeadId = 0x114d9b74;
const clusterId = 0x1f43b675;
const cuesId = 0x1c53bb6b;
const voidId = 0xec;

const lengthOf = (firstByte) => Math.clz32(firstByte) - 23;

/** The header of an element; null when it is not all in `bytes`. */
function headerAt(bytes, at) {
  const idBytes = lengthOf(bytes[at]);
  const sizeAt = at + idBytes;
  const sizeBytes = lengthOf(bytes[sizeAt]);
  const begin = sizeAt + sizeBytes;
  if (!(begin <= bytes.length)) return null;
  let size = bytes[sizeAt] & (0xff >> sizeBytes);
  for (let i = sizeAt + 1; i < begin; i += 1) size = size * 256 + bytes[i];
  return { id: bytes.readUIntBE(at, idBytes), sizeAt, sizeBytes, begin, size };
}

/** All ones stand for a size that is not known. */
function forgetSize(bytes, { sizeAt, sizeBytes }) {
  bytes.fill(0xff, sizeAt, sizeAt + sizeBytes);
  bytes[sizeAt] = 0xff >> (sizeBytes - 1);
}

/** True for a cluster that is complete already: something else follows it. */
function isComplete(bytes, { id, begin, size }) {
  const endAt = begin + size;
  return id === clusterId && (endAt + 4 > bytes.length ||
    [clusterId, cuesId].includes(bytes.readUInt32BE(endAt)));
}

/** An element with nothing in it, of the same length. */
function blank(bytes, at, { begin, size }) {
  bytes.fill(0, at, begin + size);
  bytes[at] = voidId;
  bytes[at + 1] = 0x01;
  bytes.writeUIntBE(begin + size - at - 9, at + 3, 6);
}

/**
 * Keeps a Matroska file that grows readable, for who reads it meanwhile and in
 * case it is never completed: the sizes of what is not complete are those of
 * its beginning alone, and its list of places points nowhere, by which players
 * find every track twice. What completes it writes all of them anew.
 */
export class OpenMatroska {
  // Where the next element begins that was not looked at.
  #nextAt = 0;

  /** Changes what is to be written, where it is appended. */
  leaveOpen(data, position) {
    const bytes = Buffer.from(data.buffer, data.byteOffset, data.byteLength);
    while (this.#nextAt >= position && this.#nextAt < position + bytes.length) {
      const at = this.#nextAt - position;
      const header = headerAt(bytes, at);
      if (header === null) return;
      const isOpen = (header.id === segmentId || header.id === clusterId) &&
        !isComplete(bytes, header);
      if (isOpen) {
        forgetSize(bytes, header);
        this.#nextAt = position + header.begin;
      } else {
        if (header.id === seekHeadId) blank(bytes, at, header);
        this.#nextAt = position + header.begin + header.size;
      }
    }
  }
}
