'use strict';

const { randomInt } = require('node:crypto');

// How many packets can be asked for again: a second at 8 Mbit/s and more.
const historyLimit = 1024;
// A datagram that every network carries.
const longestPacket = 1280;
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

  /** The payload is `body`, behind the bytes of `prefix`. */
  make({ prefix, body }, timestamp, isMarked) {
    const extensions = this.#extensions;
    const start = headerSize + extensions.length;
    const bodyStart = start + prefix.length;
    const packet = Buffer.allocUnsafe(bodyStart + body.length);
    const sequence = this.#sequence;
    this.#sequence = (sequence + 1) & 0xffff;
    packet[0] = 0x80 | (extensions.length > 0 ? 0x10 : 0);
    packet[1] = this.payloadType | (isMarked ? 0x80 : 0);
    packet.writeUInt16BE(sequence, 2);
    packet.writeUInt32BE(timestamp, 4);
    packet.writeUInt32BE(this.ssrc, 8);
    packet.set(extensions, headerSize);
    packet.set(prefix, start);
    packet.set(body, bodyStart);
    this.packets += 1;
    this.octets += packet.length - start;
    return { packet, sequence, transportOffset: this.#transportOffset };
  }

  get payloadStart() {
    return headerSize + this.#extensions.length;
  }
}

/**
 * The last packets of a flow, which may be asked for again. Their bytes lie in
 * one buffer: thousands of small ones that live for a second each are what a
 * garbage collector is slowest with.
 */
class PacketHistory {
  #bytes = Buffer.allocUnsafeSlow(historyLimit * longestPacket);
  #lengths = new Uint16Array(historyLimit);
  #sequences = new Int32Array(historyLimit).fill(-1);

  add(sequence, packet) {
    const slot = sequence % historyLimit;
    // What does not fit cannot be sent again.
    const isKept = packet.length <= longestPacket;
    this.#sequences[slot] = isKept ? sequence : -1;
    if (!isKept) return;
    this.#lengths[slot] = packet.length;
    this.#bytes.set(packet, slot * longestPacket);
  }

  /** The packet, until the next one is added; null when it is not known. */
  find(sequence) {
    const slot = sequence % historyLimit;
    if (this.#sequences[slot] !== sequence) return null;
    const start = slot * longestPacket;
    return this.#bytes.subarray(start, start + this.#lengths[slot]);
  }
}

/**
 * One stream of a medium: its packets, those that are sent again on a flow of
 * their own, and its sender reports.
 */
class RtpStream {
  #clockRate;
  #offset = randomUint32();
  #history = null;

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
      this.#history ??= new PacketHistory();
      this.#history.add(made.sequence, made.packet);
    }
    return made;
  }

  /** A packet once more (RFC 4588); null when it is too old, or unknown. */
  makeAgain(sequence) {
    const packet = this.#history?.find(sequence) ?? null;
    if (packet === null) return null;
    this.retransmitted += 1;
    return this.repair.make({
      prefix: [sequence >> 8, sequence & 0xff],
      body: packet.subarray(this.flow.payloadStart),
    }, packet.readUInt32BE(4), (packet[1] & 0x80) !== 0);
  }
}

module.exports = { RtpStream, makeExtensions, randomUint32 };
