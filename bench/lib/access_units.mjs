const nal = Object.freeze({
  slice: 1, idrSlice: 5, sei: 6, sps: 7, pps: 8, delimiter: 9, prefix: 14,
});
const openers = new Set([
  nal.sei, nal.sps, nal.pps, nal.delimiter, nal.prefix,
]);

/**
 * Where the access units of an Annex B stream begin and end. A picture may
 * consist of several slices; it begins at the one with its first macroblock,
 * or at what stands before that slice.
 */
export function splitAccessUnits(bytes) {
  const units = [];
  let hasSlice = false;
  const startCode = Buffer.from([0, 0, 1]);
  for (let at = bytes.indexOf(startCode); at !== -1;
    at = bytes.indexOf(startCode, at + 3)) {
    const type = bytes[at + 3] & 0x1f;
    const isSlice = type === nal.slice || type === nal.idrSlice;
    // A slice header begins with the number of its first macroblock, which is
    // zero exactly when the first bit is set.
    const isFirstSlice = isSlice && (bytes[at + 4] & 0x80) !== 0;
    const isOpener = openers.has(type) || isFirstSlice;
    if (units.length === 0 || (hasSlice && isOpener)) {
      // The long start code has one more zero in front.
      const begin = at > 0 && bytes[at - 1] === 0 ? at - 1 : at;
      if (units.length > 0) units.at(-1).end = begin;
      units.push({ begin, end: bytes.length });
      hasSlice = false;
    }
    hasSlice ||= isSlice;
  }
  return units;
}

/**
 * When each access unit was complete: the arrival of the chunk that holds its
 * last byte. `chunks` are [nanoseconds, bytes] in the order of the stream.
 */
export function arrivalsOf(units, chunks) {
  let chunk = 0;
  let received = chunks.length > 0 ? chunks[0][1] : 0;
  return units.map(({ end }) => {
    while (received < end && chunk + 1 < chunks.length) {
      chunk += 1;
      received += chunks[chunk][1];
    }
    return chunks[chunk][0];
  });
}
