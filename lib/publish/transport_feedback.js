'use strict';

// Which packets of all streams arrived, and when (transport-wide congestion
// control, draft-holmer-rmcat-transport-wide-cc-extensions-01).

const tickMs = 0.25;
const referenceMs = 64;
// A datagram could claim 65,535; a second of media is far less.
const mostPackets = 8192;

/** 0: not received, 1: a small step of time, 2: a large one. */
function readSymbols(packet, count) {
  const symbols = [];
  let at = 20;
  while (symbols.length < count) {
    if (at + 2 > packet.length) return null;
    const chunk = packet.readUInt16BE(at);
    at += 2;
    if (chunk >> 15 === 0) {
      const length = Math.min(chunk & 0x1fff, count - symbols.length);
      if (length === 0) return null;
      symbols.push(...new Array(length).fill((chunk >> 13) & 3));
    } else {
      const isWide = ((chunk >> 14) & 1) === 1;
      const step = isWide ? 2 : 1;
      for (let bit = 14 - step; bit >= 0 && symbols.length < count;
        bit -= step) {
        symbols.push((chunk >> bit) & (isWide ? 3 : 1));
      }
    }
  }
  return { symbols, at };
}

/**
 * Returns { first, arrivals }: the number of the first packet, and for each
 * from there on the time in milliseconds, or null for one that is missing.
 */
function readTransportFeedback(packet) {
  if (packet.length < 20) return null;
  const first = packet.readUInt16BE(12);
  const count = packet.readUInt16BE(14);
  if (count > mostPackets) return null;
  const read = readSymbols(packet, count);
  if (read === null) return null;
  let { at } = read;
  let time = packet.readIntBE(16, 3) * referenceMs;
  const arrivals = [];
  for (const symbol of read.symbols) {
    const size = symbol === 1 ? 1 : symbol === 2 ? 2 : 0;
    if (at + size > packet.length) return null;
    if (size > 0) {
      time += tickMs *
        (size === 1 ? packet.readUInt8(at) : packet.readInt16BE(at));
    }
    arrivals.push(size === 0 ? null : time);
    at += size;
  }
  return { first, arrivals };
}

module.exports = { readTransportFeedback };
