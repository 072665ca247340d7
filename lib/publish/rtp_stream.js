'use strict';

const { randomInt } = require('node:crypto');

// How many packets can be asked for again: a second at 8 Mbit/s and more.
const historyLimit = 1024;
const headerSize = 12;
const randomUint32 = () => randomInt(0, 2 ** 32);

/**
 * Elements of the header extension of RFC 8285 in its short form, as
 * [{ id, value }]. Returns where the value of each begins, too.
 */
function makeExtensions(elements) {
  const size = elements.reduce((sum, { value }) => sum + 1 + value.length, 0);
  const bytes = Buffer.alloc(4 + Math.ceil(size / 4) * 4);
  bytes.writeUInt16BE(0xbede, 0);
  bytes.writeUInt16BE((bytes.length - 4) / 4, 2);
  const offsets = new Map();
  let position = 4;
  for (const { id, value } of elements) {
    bytes[position] = (id << 4) | (value.length - 1);
    offsets.set(id, position + 1);
    value.copy(bytes, position + 1);
    position += 1 + value.length;
  }
  return { bytes, offsets };
}

/** One numbered flow of packets, of a medium or of retransmissions. */
class PacketFlow {
  #sequence = randomInt(0, 2 ** 15);
  #extensions;
  #transportOffset;

  constructor({ ssrc, payloadType, elements, transportId = null }) {
    this.ssrc = ssrc;
    this.payloadType = payloadType;
    this.packets = 0;
    this.octets = 0;
    const all = transportId === null ? elements
      : [...elements, { id: transportId, value: Buffer.alloc(2) }];
    if (all.length === 0) {
      this.#extensions = Buffer.alloc(0);
      this.#transportOffset = null;
      return;
    }
    const { bytes, offsets } = makeExtensions(all);
    this.#extensions = bytes;
    this.#transportOffset = transportId === null ? null
      : headerSize + offsets.get(transportId);
  }

  make(payload, timestamp, isMarked) {
    const extensions = this.#extensions;
    const start = headerSize + extensions.length;
    const packet = Buffer.allocUnsafe(start + payload.length);
    const sequence = this.#sequence;
    this.#sequence = (sequence + 1) & 0xffff;
    packet[0] = 0x80 | (extensions.length > 0 ? 0x10 : 0);
    packet[1] = this.payloadType | (isMarked ? 0x80 : 0);
    packet.writeUInt16BE(sequence, 2);
    packet.writeUInt32BE(timestamp, 4);
    packet.writeUInt32BE(this.ssrc, 8);
    extensions.copy(packet, headerSize);
    payload.copy(packet, start);
    this.packets += 1;
    this.octets += payload.length;
    return { packet, sequence, payloadStart: start,
      transportOffset: this.#transportOffset };
  }
}

/**
 * One stream of a medium: its packets, those that are sent again on a flow of
 * their own, and its sender reports.
 */
class RtpStream {
  #clockRate;
  #offset = randomUint32();
  #history = new Map();

  /**
   * `identify(isRepair)` gives the header extensions that tell the stream;
   * `repairPayloadType` is null where nothing is sent again.
   */
  constructor({ ssrc, repairSsrc = null, payloadType, repairPayloadType = null,
    clockRate, transportId = null, identify = () => [] }) {
    this.#clockRate = clockRate;
    this.flow = new PacketFlow(
      { ssrc, payloadType, transportId, elements: identify(false) });
    this.repair = repairPayloadType === null ? null : new PacketFlow({
      ssrc: repairSsrc,
      payloadType: repairPayloadType,
      transportId,
      elements: identify(true),
    });
    this.retransmitted = 0;
  }

  /** The RTP time of a time of the capture. */
  rtpTime(timestampUs) {
    const ticks = Math.round(timestampUs * this.#clockRate / 1e6);
    return (this.#offset + ticks) >>> 0;
  }

  make(payload, timestampUs, isMarked) {
    const made = this.flow.make(payload, this.rtpTime(timestampUs), isMarked);
    if (this.repair !== null) {
      this.#history.delete((made.sequence - historyLimit) & 0xffff);
      this.#history.set(made.sequence, made);
    }
    return made;
  }

  /** A packet once more (RFC 4588); null when it is too old, or unknown. */
  makeAgain(sequence) {
    const made = this.#history.get(sequence);
    if (made === undefined) return null;
    const { packet, payloadStart } = made;
    const payload = Buffer.allocUnsafe(2 + packet.length - payloadStart);
    payload.writeUInt16BE(sequence, 0);
    packet.copy(payload, 2, payloadStart);
    this.retransmitted += 1;
    return this.repair.make(payload, packet.readUInt32BE(4),
      (packet[1] & 0x80) !== 0);
  }
}

module.exports = { RtpStream, makeExtensions, randomUint32 };
