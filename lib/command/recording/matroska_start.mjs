const segmentId = '18538067';
const seekHeadId = '114d9b74';
const voidId = 0xec;

/** Position and size of an element's content; a length has 1 to 8 bytes. */
function contentOf(bytes, lengthAt) {
  const lengthBytes = Math.clz32(bytes[lengthAt]) - 23;
  let size = bytes[lengthAt] & (0xff >> lengthBytes);
  for (let i = 1; i < lengthBytes; i += 1) {
    size = size * 256 + bytes[lengthAt + i];
  }
  return { lengthBytes, begin: lengthAt + lengthBytes, size };
}

/** All ones stand for a size that is not known. */
function forgetSize(bytes, lengthAt) {
  const { lengthBytes } = contentOf(bytes, lengthAt);
  bytes.fill(0xff, lengthAt, lengthAt + lengthBytes);
  bytes[lengthAt] = 0xff >> (lengthBytes - 1);
}

/** An element with nothing in it, of the same length. */
function blank(bytes, at) {
  const { begin, size } = contentOf(bytes, at + 4);
  bytes.fill(0, at, begin + size);
  bytes[at] = voidId;
  bytes[at + 1] = 0x01;
  bytes.writeUIntBE(begin + size - at - 9, at + 3, 6);
}

/**
 * Prepares the beginning of a Matroska file for never being completed: until
 * then its size is that of the beginning alone and its list of places points
 * nowhere, by which players find every track twice. Completing the file writes
 * both anew. Returns false when the beginning is not in `data`.
 */
export function leaveOpen(data) {
  const bytes = Buffer.from(data.buffer, data.byteOffset, data.byteLength);
  const segment = bytes.indexOf(segmentId, 0, 'hex');
  const seekHead = bytes.indexOf(seekHeadId, 0, 'hex');
  if (segment === -1 || seekHead === -1) return false;
  forgetSize(bytes, segment + 4);
  blank(bytes, seekHead);
  return true;
}
