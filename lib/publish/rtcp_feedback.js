'use strict';

// What a receiver reports. All of it comes from the network: whatever does not
// fit its own lengths is left out, and nothing here throws.

const { readTransportFeedback } = require('./transport_feedback.js');

// Each can tell of thousands of packets in a few bytes.
const mostReports = 64;

const receiverReport = 201;
const senderReport = 200;
const transportFeedback = 205;
const payloadFeedback = 206;
const goodbye = 203;

function readBlocks(packet, start, count) {
  const blocks = [];
  for (let index = 0; index < count; index += 1) {
    const at = start + 24 * index;
    if (at + 24 > packet.length) break;
    blocks.push({
      ssrc: packet.readUInt32BE(at),
      fractionLost: packet[at + 4] / 256,
      jitter: packet.readUInt32BE(at + 12),
      lastReport: packet.readUInt32BE(at + 16),
      delay: packet.readUInt32BE(at + 20) / 65_536,
    });
  }
  return blocks;
}

/** Numbers of lost packets: one, and a mask of the sixteen behind it. */
function readLost(packet) {
  const lost = [];
  for (let at = 12; at + 4 <= packet.length; at += 4) {
    const first = packet.readUInt16BE(at);
    const mask = packet.readUInt16BE(at + 2);
    lost.push(first);
    for (let bit = 0; bit < 16; bit += 1) {
      if ((mask >> bit) & 1) lost.push((first + bit + 1) & 0xffff);
    }
  }
  return lost;
}

function readBitrate(packet) {
  if (packet.length < 20 || packet.toString('latin1', 12, 16) !== 'REMB') {
    return [];
  }
  const word = packet.readUInt32BE(16);
  const exponent = (word >>> 18) & 63;
  return [{ type: 'bitrate', bitsPerSecond: (word & 0x3ffff) * 2 ** exponent }];
}

function readPayloadFeedback(format, packet) {
  switch (format) {
    case 1:
      return [{ type: 'keyframe', ssrc: packet.readUInt32BE(8) }];
    case 4: {
      const requests = [];
      for (let at = 12; at + 8 <= packet.length; at += 8) {
        requests.push({ type: 'keyframe', ssrc: packet.readUInt32BE(at) });
      }
      return requests;
    }
    case 15:
      return readBitrate(packet);
    default:
      return [];
  }
}

function readOne(kind, count, packet) {
  switch (kind) {
    case senderReport:
      return [{ type: 'blocks', blocks: readBlocks(packet, 28, count) }];
    case receiverReport:
      return [{ type: 'blocks', blocks: readBlocks(packet, 8, count) }];
    case goodbye:
      return [{ type: 'goodbye' }];
    default:
      if (packet.length < 12) return [];
      if (kind === payloadFeedback) return readPayloadFeedback(count, packet);
      if (kind !== transportFeedback) return [];
      if (count === 15) {
        const feedback = readTransportFeedback(packet);
        return feedback === null ? [] : [{ type: 'transport', ...feedback }];
      }
      return count !== 1 ? [] : [{
        type: 'lost', ssrc: packet.readUInt32BE(8), sequences: readLost(packet),
      }];
  }
}

/** The reports of one datagram, in their order. */
function readReports(datagram) {
  const reports = [];
  let at = 0;
  for (let count = 0; count < mostReports; count += 1) {
    if (at + 4 > datagram.length) break;
    const size = 4 * (datagram.readUInt16BE(at + 2) + 1);
    const packet = datagram.subarray(at, at + size);
    if (packet[0] >> 6 !== 2 || packet.length < size) break;
    reports.push(...readOne(packet[1], packet[0] & 31, packet));
    at += size;
  }
  return reports;
}

module.exports = { readReports };
