export const nalType = Object.freeze({
  slice: 1, idrSlice: 5, sps: 7, pps: 8,
});

/**
 * Splits an Annex B byte stream into its NAL units, without start codes. A
 * small reader of its own, so that a check does not lean on the code it checks.
 */
export function splitNalUnits(bytes) {
  const begins = [];
  for (let at = bytes.indexOf('000001', 0, 'hex'); at !== -1;
    at = bytes.indexOf('000001', at + 3, 'hex')) {
    begins.push(at);
  }
  return begins.map((begin, position) => {
    let end = begins[position + 1] ?? bytes.length;
    // Zeroes before the next start code belong to that start code: a NAL unit
    // itself never ends in one.
    while (end > begin + 3 && bytes[end - 1] === 0) end -= 1;
    const unit = bytes.subarray(begin + 3, end);
    return { type: unit[0] & 0x1f, referenceIdc: (unit[0] >> 5) & 3, unit };
  });
}

export function startsWithStartCode(bytes) {
  return bytes.readUIntBE(0, 3) === 1 || bytes.readUInt32BE(0) === 1;
}

export function hasIdrSlice(accessUnit) {
  return splitNalUnits(accessUnit)
    .some(({ type }) => type === nalType.idrSlice);
}
