'use strict';

// Kinds of NAL units that a receiver of the baseline profile has no use for:
// delimiters, filler, and what tells temporal layers apart.
const leftOut = new Set([9, 12, 14, 15, 20]);

const none = Object.freeze([]);

/** Where the NAL units of an access unit in Annex B form begin and end. */
function splitAccessUnit(data) {
  const units = [];
  let start = -1;
  let position = data.indexOf('\0\0\x01', 0, 'latin1');
  while (position !== -1) {
    if (start !== -1) units.push(data.subarray(start, position));
    start = position + 3;
    position = data.indexOf('\0\0\x01', start, 'latin1');
  }
  if (start !== -1) units.push(data.subarray(start));
  return units.map(withoutTrailingZeros).filter((unit) => unit.length > 0);
}

/** A start code of four bytes leaves its first zero to the unit before. */
function withoutTrailingZeros(unit) {
  let end = unit.length;
  while (end > 0 && unit[end - 1] === 0) end -= 1;
  return unit.subarray(0, end);
}

/**
 * The payloads of the RTP packets of one access unit, none longer than
 * `longest` bytes (RFC 6184, packetization mode 1): small units alone, large
 * ones in fragments. Each is { prefix, body }, the bytes of the one before those
 * of the other; a body is a part of `data`, which is not copied here.
 */
function packetizeAccessUnit(data, longest) {
  const payloads = [];
  for (const unit of splitAccessUnit(data)) {
    if (leftOut.has(unit[0] & 31)) continue;
    if (unit.length <= longest) payloads.push({ prefix: none, body: unit });
    else addFragments(payloads, unit, longest);
  }
  return payloads;
}

function addFragments(payloads, unit, longest) {
  const indicator = (unit[0] & 0xe0) | 28;
  const kind = unit[0] & 31;
  const share = longest - 2;
  // The unit's own first byte is carried by the two of each fragment.
  for (let start = 1; start < unit.length; start += share) {
    const end = start + share;
    payloads.push({
      prefix: [indicator, kind | (start === 1 ? 0x80 : 0) |
        (end >= unit.length ? 0x40 : 0)],
      body: unit.subarray(start, end),
    });
  }
}

module.exports = { packetizeAccessUnit, splitAccessUnit };
