import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import { describe, test } from 'node:test';
import feedback from '../../lib/publish/rtcp_feedback.js';
import receptionReports from '../../lib/publish/reception_reports.js';
import reports from '../../lib/publish/rtcp_reports.js';

const { readReports } = feedback;
const { ReceptionReports } = receptionReports;

const hex = (text) => Buffer.from(text.replaceAll(' ', ''), 'hex');

describe('reports of a receiver', () => {
  test('ask for a keyframe', () => {
    assert.deepEqual(readReports(hex('81ce0002 00000001 00000007')),
      [{ type: 'keyframe', ssrc: 7 }]);
    assert.deepEqual(
      readReports(hex('84ce0004 00000001 00000000 00000009 05000000')),
      [{ type: 'keyframe', ssrc: 9 }]);
  });

  test('name lost packets by one number and a mask', () => {
    assert.deepEqual(
      readReports(hex('81cd0003 00000001 00000007 fffe0005')),
      [{ type: 'lost', ssrc: 7, sequences: [0xfffe, 0xffff, 1] }]);
  });

  test('tell a bitrate', () => {
    const [report] = readReports(
      hex('8fce0005 00000001 00000000 52454d42 010bd090 00000007'));
    assert.equal(report.type, 'bitrate');
    // Mantissa 0x3d090 with an exponent of 2.
    assert.equal(report.bitsPerSecond, 0x3d090 * 4);
  });

  test('come several in one datagram', () => {
    const both = hex('80c90001 00000001 81ce0002 00000001 00000007');
    assert.deepEqual(readReports(both).map(({ type }) => type),
      ['blocks', 'keyframe']);
  });

  test('tell which packets of all arrived, and when', () => {
    // Five from number 10 on, from 128 ms: after 1 ms, 2 ms and 20 ms, 1 ms
    // after that, and one that did not come.
    const packet = hex('8fcd0006 00000001 00000000 000a 0005 000002 01' +
      'd640 04 08 0050 04 000000');
    assert.deepEqual(readReports(packet), [{
      type: 'transport', first: 10, arrivals: [129, 131, 151, 152, null],
    }]);
    // The same in runs: two small steps, three that did not come.
    const runs = hex('8fcd0006 00000001 00000000 000a 0005 000002 01' +
      '2002 0003 0408 0000 0000');
    assert.deepEqual(readReports(runs)[0].arrivals,
      [129, 131, null, null, null]);
  });

  test('of any bytes never throw, nor hold on for long', () => {
    for (let round = 0; round < 20_000; round += 1) {
      const bytes = randomBytes(round % 120);
      // Half of them begin as reports do.
      if (round % 2 === 0 && bytes.length >= 4) {
        bytes[0] = 0x80 | (bytes[0] & 31);
        bytes[1] = 200 + (bytes[1] % 8);
        bytes.writeUInt16BE(Math.floor(bytes.length / 4) - 1, 2);
      }
      for (const { type } of readReports(bytes)) {
        assert.equal(typeof type, 'string');
      }
    }
  });

  test('claim no more packets than can be true', () => {
    const bytes = Buffer.alloc(24);
    hex('8fcd0005 00000001 00000000 0000 ffff 000000 00 3fff 0000')
      .copy(bytes);
    assert.deepEqual(readReports(bytes), []);
  });
});

describe('reports of a sender', () => {
  test('put the time of RTP beside that of the world', () => {
    const flow = { ssrc: 7, packets: 3, octets: 300 };
    const report = reports.senderReport(flow, 1234, 1.5e6);
    assert.equal(report.readUInt32BE(8), 2_208_988_801);
    assert.equal(report.readUInt32BE(12), 2 ** 31);
    assert.equal(report.readUInt32BE(16), 1234);
    assert.deepEqual([report.readUInt32BE(20), report.readUInt32BE(24)],
      [3, 300]);
  });

  test('are whole words with the name in them', () => {
    for (const name of ['a', 'ab', 'abc', 'abcd', 'abcde']) {
      const report = reports.sourceDescription(7, name);
      assert.equal(report.length, 4 * (report.readUInt16BE(2) + 1));
      assert.equal(report.subarray(10, 10 + name.length).toString(), name);
      assert.equal(report.at(-1), 0);
    }
  });
});

describe('what reports add up to', () => {
  test('is the share of packets that did not arrive', () => {
    const reception = new ReceptionReports();
    for (let number = 0; number < 10; number += 1) {
      reception.sent(number, number);
    }
    reception.takeTransport(
      { first: 0, arrivals: [5, null, 7, 8, 9, 10, 11, 12, 13, 14] });
    assert.equal(reception.takeRound().loss, 0.1);
  });

  test('is how much longer packets are under way than at best', () => {
    const reception = new ReceptionReports();
    for (const [number, way] of [[0, 20], [1, 20], [2, 320], [3, 320]]) {
      reception.sent(number, number * 10);
      reception.takeTransport(
        { first: number, arrivals: [number * 10 + way] });
      if (number === 1) assert.equal(reception.takeRound().delayMs, 0);
    }
    assert.equal(reception.takeRound().delayMs, 300);
  });

  test('is the time to the receiver and back', () => {
    const reception = new ReceptionReports();
    const sentUs = 1_700_000_000_000_000;
    const lastReport = reports.compactNtp(reports.ntpTime(sentUs));
    reception.takeBlocks(
      [{ fractionLost: 0, lastReport, delay: 0.5 }], sentUs + 540_000);
    assert.ok(Math.abs(reception.roundTripMs - 40) < 1);
  });
});
