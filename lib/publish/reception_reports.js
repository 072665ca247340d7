'use strict';

const { compactNtp, ntpTime } = require('./rtcp_reports.js');

const rememberedPackets = 8192;
// The shortest way of late is what the others are measured by.
const shortestOfRounds = 30;

/** What the reports of a receiver add up to, second by second. */
class ReceptionReports {
  // By the number, up to the remembered ones: when it left, and of which number
  // that is told.
  #sentAtMs = new Float64Array(rememberedPackets);
  #sentSequences = new Int32Array(rememberedPackets).fill(-1);
  #arrived = 0;
  #missing = 0;
  #delays = [];
  #shortest = [];
  #blockLoss = 0;
  #hasTransport = false;

  constructor() {
    this.roundTripMs = null;
    /** Of the last round, as a share; null before there was one. */
    this.loss = null;
    /** What the receiver thinks the way carries; null if it never said. */
    this.estimate = null;
  }

  /** A packet with this number of the transport left. */
  sent(sequence, nowMs) {
    const slot = sequence % rememberedPackets;
    this.#sentAtMs[slot] = nowMs;
    this.#sentSequences[slot] = sequence;
  }

  takeTransport({ first, arrivals }) {
    this.#hasTransport = true;
    arrivals.forEach((arrivedMs, index) => {
      const sequence = (first + index) & 0xffff;
      const slot = sequence % rememberedPackets;
      // A packet that is told of twice is counted once.
      if (this.#sentSequences[slot] !== sequence) return;
      if (arrivedMs === null) {
        this.#missing += 1;
        return;
      }
      this.#sentSequences[slot] = -1;
      this.#arrived += 1;
      this.#delays.push(arrivedMs - this.#sentAtMs[slot]);
    });
  }

  takeBlocks(blocks, unixUs) {
    for (const { fractionLost, lastReport, delay } of blocks) {
      this.#blockLoss = Math.max(this.#blockLoss, fractionLost);
      if (lastReport === 0) continue;
      const passed =
        ((compactNtp(ntpTime(unixUs)) - lastReport) >>> 0) / 65_536;
      const roundTrip = (passed - delay) * 1000;
      // A clock that was set in between makes nonsense of it.
      if (roundTrip >= 0 && roundTrip < 60_000) this.roundTripMs = roundTrip;
    }
  }

  takeEstimate(bitsPerSecond) {
    this.estimate = bitsPerSecond;
  }

  /** What came since the last round. */
  takeRound() {
    const total = this.#arrived + this.#missing;
    const loss = this.#hasTransport
      ? (total === 0 ? 0 : this.#missing / total) : this.#blockLoss;
    let delayMs = 0;
    if (this.#delays.length > 0) {
      const sorted = Float64Array.from(this.#delays).sort();
      this.#shortest.push(sorted[0]);
      if (this.#shortest.length > shortestOfRounds) this.#shortest.shift();
      delayMs = sorted[sorted.length >> 1] - Math.min(...this.#shortest);
    }
    this.#arrived = 0;
    this.#missing = 0;
    this.#delays = [];
    this.#blockLoss = 0;
    this.loss = loss;
    return { loss, estimate: this.estimate, delayMs };
  }
}

module.exports = { ReceptionReports };
