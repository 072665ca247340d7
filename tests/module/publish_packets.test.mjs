import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import accessUnits from '../../lib/publish/access_units.js';
import frames from '../../lib/publish/frames.js';
import limits from '../../lib/publish/keyframe_limit.js';
import layerFilter from '../../lib/publish/layer_filter.js';
import sending from '../../lib/publish/media_sender.js';
import pacing from '../../lib/publish/pacer.js';
import rateControl from '../../lib/publish/rate_control.js';
import rtp from '../../lib/publish/rtp_stream.js';

const packetize = (data, longest) =>
  accessUnits.packetizeAccessUnit(data, longest)
    .map(({ prefix, body }) => Buffer.concat([Buffer.from(prefix), body]));
const { FrameReader, makeFrames } = frames;
const { LayerFilter } = layerFilter;
const { MediaSender } = sending;
const { Pacer } = pacing;
const { RateControl } = rateControl;
const { RtpStream } = rtp;

const startCode = Buffer.from([0, 0, 0, 1]);
const unit = (kind, length) => Buffer.concat(
  [Buffer.from([kind]), Buffer.alloc(length - 1, 0xab)]);
const accessUnit = (...units) =>
  Buffer.concat(units.flatMap((each) => [startCode, each]));

/** What a receiver of RFC 6184 makes of payloads. */
function reassemble(payloads) {
  const units = [];
  for (const payload of payloads) {
    if ((payload[0] & 31) !== 28) {
      units.push(payload);
    } else if (payload[1] & 0x80) {
      units.push(Buffer.concat([
        Buffer.from([(payload[0] & 0xe0) | (payload[1] & 31)]),
        payload.subarray(2),
      ]));
    } else {
      units.push(Buffer.concat([units.pop(), payload.subarray(2)]));
    }
  }
  return units;
}

describe('an access unit in packets', () => {
  for (const length of [2, 99, 100, 101, 198, 199, 200, 5_000]) {
    test(`of a unit of ${length} bytes is whole again`, () => {
      const units = [unit(0x67, 12), unit(0x68, 4), unit(0x65, length)];
      const payloads = packetize(accessUnit(...units), 100);
      assert.ok(payloads.every((payload) => payload.length <= 100));
      assert.deepEqual(reassemble(payloads), units);
    });
  }

  test('has one first and one last fragment of a unit', () => {
    const payloads = packetize(accessUnit(unit(0x65, 1_000)), 100);
    const marks = payloads.map((payload) => payload[1] & 0xc0);
    assert.deepEqual(marks,
      [0x80, ...new Array(marks.length - 2).fill(0), 0x40]);
  });

  test('leaves out what a baseline receiver cannot read', () => {
    const kept = unit(0x41, 20);
    const payloads = packetize(
      accessUnit(unit(0x09, 2), unit(0x6e, 4), kept, unit(0x74, 9)), 100);
    assert.deepEqual(payloads, [kept]);
  });

  test('is nothing where there is no start code', () => {
    assert.deepEqual(packetize(Buffer.alloc(50, 7), 100), []);
    assert.deepEqual(packetize(Buffer.alloc(0), 100), []);
  });
});

describe('a stream of packets', () => {
  const payload = (text) => ({ prefix: [], body: Buffer.from(text) });
  const make = () => new RtpStream({
    ssrc: 7,
    repairSsrc: 8,
    payloadType: 96,
    repairPayloadType: 97,
    clockRate: 90_000,
    transportId: 4,
    identify: (isRepair) => [{ id: isRepair ? 3 : 2, value: Buffer.from('h') }],
  });

  test('is numbered without a gap, past the largest number', () => {
    const stream = make();
    let last = stream.make(payload('x'), 0, false).sequence;
    for (let count = 0; count < 70_000; count += 1) {
      const { sequence } = stream.make(payload('x'), 0, false);
      assert.equal(sequence, (last + 1) & 0xffff);
      last = sequence;
    }
  });

  test('has times of its clock', () => {
    const stream = make();
    const times = [0, 1_000_000].map((us) => stream.rtpTime(us));
    assert.equal((times[1] - times[0]) >>> 0, 90_000);
  });

  test('sends a packet again with its first number, on a flow of its own',
    () => {
      const stream = make();
      const { packet, sequence } = stream.make(payload('abc'), 5, true);
      const again = stream.makeAgain(sequence);
      assert.equal(again.packet.readUInt32BE(8), 8);
      assert.equal(again.packet[1], 0x80 | 97);
      assert.equal(again.packet.readUInt32BE(4), packet.readUInt32BE(4));
      const sent = again.packet.subarray(stream.repair.payloadStart);
      assert.equal(sent.readUInt16BE(0), sequence);
      assert.equal(sent.subarray(2).toString(), 'abc');
    });

  test('sends what it was, also after other packets', () => {
    const stream = make();
    const made = ['first', 'second', 'third'].map((text, index) =>
      stream.make({ prefix: [7, index], body: Buffer.from(text) }, index, false));
    const texts = made.map(({ sequence }) =>
      stream.makeAgain(sequence).packet
        .subarray(stream.repair.payloadStart + 2).toString('latin1'));
    assert.deepEqual(texts,
      ['\x07\x00first', '\x07\x01second', '\x07\x02third']);
    assert.equal(stream.retransmitted, 3);
  });

  test('does not keep what no datagram can carry', () => {
    const stream = make();
    const { sequence } = stream.make(
      { prefix: [], body: Buffer.alloc(2_000) }, 0, false);
    assert.equal(stream.makeAgain(sequence), null);
  });

  test('does not know packets that are too old, or never were', () => {
    const stream = make();
    const { sequence } = stream.make(payload('a'), 0, false);
    assert.equal(stream.makeAgain((sequence + 1) & 0xffff), null);
    for (let count = 0; count < 1_024; count += 1) {
      stream.make(payload('a'), 0, false);
    }
    assert.equal(stream.makeAgain(sequence), null);
  });
});

describe('the layers that are sent', () => {
  // The order in which three layers are coded.
  const ids = [0, 2, 1, 2];
  const pictures = (count) => Array.from({ length: count }, (_, index) =>
    ({ isKeyframe: index === 0, temporalId: ids[index % 4] }));

  test('begin with a keyframe', () => {
    const filter = new LayerFilter(3);
    assert.ok(!filter.takes({ isKeyframe: false, temporalId: 0 }));
    assert.ok(filter.takes({ isKeyframe: true, temporalId: 0 }));
    assert.ok(filter.takes({ isKeyframe: false, temporalId: 2 }));
  });

  test('go at once, and come back with a picture of the lowest', () => {
    const filter = new LayerFilter(3);
    const taken = [];
    pictures(16).forEach((picture, index) => {
      if (index === 2) filter.allow(1);
      // Between a picture of layer 0 and its one of layer 1.
      if (index === 9) filter.allow(3);
      if (filter.takes(picture)) taken.push(index);
    });
    assert.deepEqual(taken, [0, 1, 4, 8, 12, 13, 14, 15]);
  });

  test('of a branch that was off begin with a keyframe', () => {
    const filter = new LayerFilter(1);
    assert.ok(filter.takes({ isKeyframe: true, temporalId: 0 }));
    filter.allow(0);
    assert.ok(!filter.takes({ isKeyframe: true, temporalId: 0 }));
    filter.allow(1);
    assert.ok(filter.needsKeyframe);
    assert.ok(!filter.takes({ isKeyframe: false, temporalId: 0 }));
    assert.ok(filter.takes({ isKeyframe: true, temporalId: 0 }));
  });
});

describe('what is left out', () => {
  const bad = { loss: 0.3, estimate: null, sentBitsPerSecond: 1e6, queueMs: 0 };
  const good = { ...bad, loss: 0 };
  const run = (control, from, rounds, figures) => {
    for (let round = 0; round < rounds; round += 1) {
      control.judge({ ...figures, nowMs: (from + round) * 1000 });
    }
    return control.step;
  };

  test('is nothing at first, and after a single bad second', () => {
    const control = new RateControl({ branchCount: 3, layerCount: 3 });
    const all = { firstBranch: 0, layers: 3, bitrateShare: 1 };
    assert.deepEqual(run(control, 0, 5, good), all);
    assert.deepEqual(run(control, 5, 1, bad), all);
    assert.equal(control.reason, null);
  });

  test('are layers first, then branches, never the last one', () => {
    const control = new RateControl({ branchCount: 3, layerCount: 3 });
    const steps = [];
    for (let from = 0; from < 12; from += 2) {
      steps.push(run(control, from, 2, bad));
    }
    assert.deepEqual(
      steps.map(({ firstBranch, layers }) => [firstBranch, layers]),
      [[0, 2], [0, 1], [1, 1], [2, 1], [2, 1], [2, 1]]);
    assert.equal(control.reason, 'loss');
  });

  test('comes back step by step when all is well', () => {
    const control = new RateControl({ branchCount: 1, layerCount: 3 });
    run(control, 0, 4, bad);
    assert.equal(run(control, 4, 7, good).layers, 2);
    assert.equal(run(control, 11, 7, good).layers, 3);
    assert.equal(control.reason, null);
  });

  test('is tried less and less often where the way stays narrow', () => {
    const control = new RateControl({ branchCount: 1, layerCount: 2 });
    let tries = 0;
    let last = 2;
    for (let second = 0; second < 120; second += 1) {
      control.judge(
        { ...control.step.layers === 2 ? bad : good, nowMs: second * 1000 });
      if (control.step.layers > last) tries += 1;
      last = control.step.layers;
    }
    assert.ok(tries >= 2 && tries <= 6, `${tries} tries`);
  });

  test('of a hardware encoder is bitrate first, then branches', () => {
    const control =
      new RateControl({ branchCount: 3, layerCount: 1, isHardware: true });
    const steps = [];
    for (let from = 0; from < 16; from += 2) {
      steps.push(run(control, from, 2, bad));
    }
    assert.deepEqual(
      steps.map(({ firstBranch, bitrateShare }) => [firstBranch, bitrateShare]),
      [[0, 0.7], [0, 0.5], [0, 0.35], [0, 0.25], [1, 0.25], [2, 0.25],
        [2, 0.25], [2, 0.25]]);
  });

  for (const [reason, figures] of [
    ['queue', { queueMs: 900 }], ['estimate', { estimate: 500_000 }],
  ]) {
    test(`tells "${reason}"`, () => {
      const control = new RateControl({ branchCount: 1, layerCount: 2 });
      run(control, 0, 2, { ...good, ...figures });
      assert.equal(control.reason, reason);
    });
  }
});

describe('a sender of a hardware encoder', () => {
  const answer = {
    video: { payloadType: 96, repairPayloadType: 97, rids: [],
      extensions: new Map() },
    audio: null,
  };
  const makeSender = (setBitrateShare) => new MediaSender({
    answer, rids: [], layers: 1, bitsPerSecond: 1e6, setBitrateShare,
    numbers: { streams: [{ ssrc: 7, repairSsrc: 8 }], audio: null, name: 'n' },
    nowUs: () => 0, send: () => {}, requestKeyframe: () => {},
  });
  /** Labelled as if there were layers. */
  const sendPictures = (sender) => {
    [0, 2, 1, 2, 0].forEach((temporalId, index) => sender.takePicture({
      branch: 0, isKeyframe: index === 0, temporalId, timestampUs: index,
      data: accessUnit(unit(index === 0 ? 0x65 : 0x41, 40)),
    }));
    const [{ frames, leftOutFrames }] = sender.stats().branches;
    return { frames, leftOutFrames };
  };

  test('leaves out no picture, since each is referred to', () => {
    const sender = makeSender(() => {});
    assert.deepEqual(sendPictures(sender), { frames: 5, leftOutFrames: 0 });
    sender.stop();
    const software = makeSender(null);
    assert.deepEqual(sendPictures(software), { frames: 2, leftOutFrames: 3 });
    software.stop();
  });

  test('asks for less where much is lost, and for all at its end', (context) => {
    context.mock.timers.enable({ apis: ['setInterval', 'setTimeout'] });
    const shares = [];
    const sender = makeSender((share) => shares.push(share));
    // A receiver that half of the packets do not reach.
    const report = Buffer.alloc(32);
    report.set([0x81, 201, 0, 7]);
    report[12] = 128;
    for (let second = 0; second < 4; second += 1) {
      sender.takeReports(report);
      context.mock.timers.tick(1_000);
    }
    assert.deepEqual(shares, [0.7, 0.5]);
    assert.equal(sender.stats().leftOut.bitrateShare, 0.5);
    sender.stop();
    assert.deepEqual(shares, [0.7, 0.5, 1]);
  });

  test('that was not slowed down is left as it is', () => {
    const shares = [];
    makeSender((share) => shares.push(share)).stop();
    assert.deepEqual(shares, []);
  });
});

describe('packets', () => {
  /** A pacer of 1,000 bytes a millisecond, in a time that the test makes. */
  function makePaced(context) {
    context.mock.timers.enable({ apis: ['setTimeout'] });
    const time = { now: 0 };
    const sent = [];
    const pacer = new Pacer({
      bitsPerSecond: 8e6, now: () => time.now,
      send: ({ packet, name }) =>
        sent.push({ name, now: time.now, size: packet.length }),
    });
    const pass = (ms, step = 1) => {
      for (const end = time.now + ms; time.now < end;) {
        time.now += step;
        context.mock.timers.tick(step);
      }
    };
    return { pacer, sent, pass };
  }

  const entry = (name, size) => ({ name, packet: Buffer.alloc(size) });

  const push = (pacer, count) => {
    for (let index = 0; index < count; index += 1) {
      pacer.pushPicture(entry('picture', 1_000));
    }
  };

  const bytesIn = (sent, start, end) => sent
    .filter(({ now }) => now >= start && now < end)
    .reduce((sum, { size }) => sum + size, 0);

  test('leave in small groups', (context) => {
    const { pacer, sent, pass } = makePaced(context);
    push(pacer, 100);
    pass(150);
    assert.equal(sent.length, 100);
    for (let start = 0; start < 100; start += 10) {
      const bytes = bytesIn(sent, start, start + 10);
      assert.ok(bytes <= 17_000, `${bytes} bytes from ${start} ms on`);
    }
    // Each is a wake-up and a system call.
    assert.ok(new Set(sent.map(({ now }) => now)).size <= 30);
    assert.equal(pacer.waitingBytes, 0);
  });

  test('of sound wait for none of pictures', (context) => {
    const { pacer, sent, pass } = makePaced(context);
    push(pacer, 100);
    pass(12);
    pacer.pushSound(entry('sound', 100));
    assert.equal(sent.at(-1).name, 'sound');
  });

  test('that are sent again go before pictures', (context) => {
    const { pacer, sent, pass } = makePaced(context);
    push(pacer, 20);
    pacer.pushAgain(entry('again', 1_000));
    pass(10);
    assert.ok(sent.findIndex(({ name }) => name === 'again') <= 6);
  });

  test('make up for a late timer, but not for all of it at once', (context) => {
    const { pacer, sent, pass } = makePaced(context);
    push(pacer, 200);
    pass(100, 10);
    assert.ok(bytesIn(sent, 1, 101) >= 95_000);
    push(pacer, 200);
    pass(1_000, 500);
    const groups = new Map();
    for (const { now, size } of sent) {
      groups.set(now, (groups.get(now) ?? 0) + size);
    }
    assert.ok(Math.max(...groups.values()) <= 11_000);
  });
});

test('frames that are written at once are read one by one', () => {
  const payloads = [0, 1, 1_200, 65_535].map((size) => Buffer.alloc(size, size));
  const bytes = makeFrames('p', payloads);
  for (const pieceSize of [bytes.length, 1_000]) {
    const got = [];
    const reader = new FrameReader((kind, payload) =>
      got.push([kind, Buffer.from(payload)]));
    for (let at = 0; at < bytes.length; at += pieceSize) {
      reader.add(bytes.subarray(at, at + pieceSize));
    }
    assert.deepEqual(got, payloads.map((payload) => ['p', payload]));
  }
});

test('packets wait less where there are more of them', (context) => {
  context.mock.timers.enable({ apis: ['setInterval'] });
  const sender = new sending.MediaSender({
    answer: {
      video: { payloadType: 96, repairPayloadType: null, rids: [],
        extensions: new Map() },
      audio: null,
    },
    numbers: { streams: [{ ssrc: 1, repairSsrc: 2 }], audio: null, name: 'a' },
    rids: [], layers: 1, bitsPerSecond: 0, nowUs: () => 0,
    send: () => {}, requestKeyframe: () => {},
  });
  try {
    const data = Buffer.alloc(1_000_000, 0xab);
    data.set([0, 0, 1, 0x65]);
    sender.takePicture(
      { branch: 0, data, isKeyframe: true, temporalId: 0, timestampUs: 0 });
    // At ten million bits a second.
    const before = sender.stats().waitingMs;
    assert.ok(before > 700 && before < 900, `${before}`);
    context.mock.timers.tick(1_000);
    // A second's worth came in next to no time.
    assert.ok(sender.stats().waitingMs < before / 2);
  } finally {
    sender.stop();
  }
});

describe('requests for keyframes', () => {
  test('are followed at once, but for those that never end', () => {
    const limit = new limits.KeyframeLimit();
    const times = [];
    // Somebody asks every millisecond for three seconds.
    for (let nowMs = 0; nowMs < 3_000; nowMs += 1) {
      if (limit.waitMs(nowMs) > 0) continue;
      limit.asked(nowMs);
      times.push(nowMs);
    }
    assert.deepEqual(times.slice(0, 4), [0, 50, 600, 650]);
    assert.equal(times.length, 10);
  });

  test('of two who come one behind the other do not wait', () => {
    const limit = new limits.KeyframeLimit();
    for (const nowMs of [1_000, 1_200, 5_000, 5_070]) {
      assert.equal(limit.waitMs(nowMs), 0);
      limit.asked(nowMs);
    }
    assert.equal(limit.waitMs(5_100), 500);
  });
});
