'use strict';

// Seconds between the epochs of NTP and of Unix.
const ntpEpoch = 2_208_988_800;

/** A time of Unix, in microseconds, as the two words of NTP. */
function ntpTime(unixUs) {
  const seconds = Math.floor(unixUs / 1e6);
  const fraction = Math.floor((unixUs - seconds * 1e6) * 2 ** 32 / 1e6);
  return { seconds: (seconds + ntpEpoch) >>> 0, fraction };
}

/** The middle 32 bits of it, by which a receiver refers to a report. */
const compactNtp = ({ seconds, fraction }) =>
  ((seconds & 0xffff) * 2 ** 16 + (fraction >>> 16)) >>> 0;

function senderReport(flow, rtpTime, unixUs) {
  const report = Buffer.alloc(28);
  const { seconds, fraction } = ntpTime(unixUs);
  report[0] = 0x80;
  report[1] = 200;
  report.writeUInt16BE(6, 2);
  report.writeUInt32BE(flow.ssrc, 4);
  report.writeUInt32BE(seconds, 8);
  report.writeUInt32BE(fraction, 12);
  report.writeUInt32BE(rtpTime, 16);
  report.writeUInt32BE(flow.packets >>> 0, 20);
  report.writeUInt32BE(flow.octets % 2 ** 32, 24);
  return report;
}

/** The description that ties the streams of one sender together. */
function sourceDescription(ssrc, name) {
  const text = Buffer.from(name);
  // An item, its end, and zeros up to a whole word.
  const size = Math.ceil((4 + 2 + text.length + 1) / 4) * 4;
  const report = Buffer.alloc(4 + size);
  report[0] = 0x81;
  report[1] = 202;
  report.writeUInt16BE(size / 4, 2);
  report.writeUInt32BE(ssrc, 4);
  report[8] = 1;
  report[9] = text.length;
  text.copy(report, 10);
  return report;
}

function goodbye(ssrcs) {
  const report = Buffer.alloc(4 + 4 * ssrcs.length);
  report[0] = 0x80 | ssrcs.length;
  report[1] = 203;
  report.writeUInt16BE(ssrcs.length, 2);
  ssrcs.forEach((ssrc, index) => report.writeUInt32BE(ssrc, 4 + 4 * index));
  return report;
}

module.exports = {
  compactNtp, goodbye, ntpTime, senderReport, sourceDescription,
};
