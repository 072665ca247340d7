import assert from 'node:assert/strict';
import { test } from 'node:test';
import { hardwareBranches, runHardware } from '../support/hardware.mjs';

// The branches are configured at 3,000,000, 630,672 and 164,509 bits a second,
// each with a floor of 100,000; see hardware_pipeline.test.mjs.
const configured = [3_000_000, 630_672, 164_509];
const floors = [100_000, 100_000, 100_000];

const result = (requestedBitrate, bitrates) => ({
  requestedBitrate,
  branchBitrates: bitrates.map((bitrate, branchIndex) => (
    { branchIndex, bitrate, bitrateUnits: Math.floor(bitrate / 1000) })),
});

// Starts a capture, waits for pictures and offers `attempt`, which tells what
// a call returned or which error it threw.
const start = (request) => `
  const collected = collect();
  addon.captureSetup(hardwareRequest(${request}));
  await until(() => collected.ofBranch(2).length > 2, 'packets');
  const attempt = (...args) => {
    try {
      return addon.setBitrate(...args);
    } catch (error) {
      return error.name + ': ' + error.message;
    }
  };
  const applied = () => addon.getStats().branchStats.map(
    ({ appliedBitrate, appliedMaxBitrate }) => (
      [appliedBitrate, appliedMaxBitrate]));
`;

test('a request is clamped, shared out exactly and recorded', async () => {
  const values = [1_500_000, 1_500_000.9, 50_000, -1, Number.NaN, 300_000,
    300_001, 3_795_180, 3_795_181, 3_795_182, 300_000_001, 1e12, Infinity];
  const { answers } = await runHardware(`
    ${start('')}
    const values = [${values.join(', ')}];
    const answers = values.map((value) => ({
      answer: attempt(value), applied: applied(),
    }));
    addon.stopCapture();
    report({ answers });
  `);
  // 1,200,000 above the floors, shared by headrooms of 2,900,000, 530,672 and
  // 64,509: 995,656, 182,195 and 22,147; the 2 left over go to the first, and
  // so does one bit more than the floors. One bit less than everything takes
  // one from each share and leaves 2, which the first two branches get back.
  const expected = [
    result(1_500_000, [1_095_658, 282_195, 122_147]),
    result(1_500_000, [1_095_658, 282_195, 122_147]),
    result(100_000, floors),
    result(100_000, floors),
    result(100_000, floors),
    result(300_000, floors),
    result(300_001, [100_001, 100_000, 100_000]),
    result(3_795_180, [3_000_000, 630_672, 164_508]),
    result(3_795_181, configured),
    result(3_795_182, configured),
    result(300_000_000, configured),
    result(300_000_000, configured),
    result(300_000_000, configured),
  ];
  answers.forEach(({ answer, applied }, index) => {
    assert.deepEqual(answer, expected[index], `setBitrate(${values[index]})`);
    assert.deepEqual(applied, expected[index].branchBitrates.map(
      ({ bitrate }) => [bitrate, bitrate]));
  });
});

test('an argument that is not one number is a TypeError', async () => {
  const { answers } = await runHardware(`
    ${start('')}
    const answers = [[], ['1000000'], [null], [1_000_000, 1]].map(
      (args) => attempt(...args));
    addon.stopCapture();
    answers.push(attempt(1_000_000));
    report({ answers });
  `);
  const refused = 'TypeError: setBitrate requires one bitrate number in bits ' +
    'per second';
  assert.deepEqual(answers, [refused, refused, refused, refused,
    'Error: Linux setBitrate requires an active capture pipeline']);
});

test('the measured bitrate of every stream follows within two seconds',
  async () => {
    const { packets, changes } = await runHardware(`
      import { monotonicUs } from ${JSON.stringify(
        new URL('../support/capture.mjs', import.meta.url).href)};
      const collected = collect();
      addon.captureSetup(hardwareRequest({ gopSize: 600 }));
      const origin = addon.getStats().sessionClockOriginUs;
      const streamReaches = (time) => until(() => [0, 1, 2].every((index) =>
        collected.ofBranch(index).at(-1)?.timestampUs >= time),
      'two seconds of video', 20_000);
      await streamReaches(1e6);
      const changes = [];
      for (const bitrate of [900_000, 3_795_181, 600_000]) {
        const timeUs = monotonicUs() - origin;
        const { branchBitrates } = addon.setBitrate(bitrate);
        changes.push({ timeUs, branchBitrates });
        await streamReaches(timeUs + 2e6);
      }
      addon.stopCapture();
      report({ packets: collected.packets, changes });
    `);
    assert.deepEqual(
      changes.map(({ branchBitrates }) =>
        branchBitrates.map(({ bitrate }) => bitrate)),
      [[597_830, 191_097, 111_073], configured, [348_916, 145_548, 105_536]]);
    for (const { timeUs, branchBitrates } of changes) {
      for (const { branchIndex, bitrate } of branchBitrates) {
        // By the second second the stream has the new rate. It is measured
        // over the pictures that came: a busy machine may miss some.
        const window = packets.filter((packet) =>
          packet.branchIndex === branchIndex &&
          packet.timestampUs >= timeUs + 1e6 &&
          packet.timestampUs < timeUs + 2e6);
        const { fps } = hardwareBranches[branchIndex];
        assert.ok(window.length >= fps / 5, `${window.length} pictures`);
        const bits = window.reduce(
          (sum, { payload }) => sum + payload.length * 8, 0);
        const measured = bits * fps / window.length;
        assert.ok(Math.abs(measured / bitrate - 1) < 0.2,
          `branch ${branchIndex}: ${measured} for ${bitrate}`);
      }
    }
  });

test('an encoder that cannot be found leaves earlier branches changed',
  async () => {
    const { answer, before, after } = await runHardware(`
      ${start('')}
      const before = applied();
      const answer = attempt(1_500_000);
      const after = applied();
      addon.stopCapture();
      report({ answer, before, after });
    `, { switches: 'hide-encoder=1' });
    assert.equal(answer, 'Error: Linux setBitrate could not find GStreamer ' +
      'encoder videoEncoder1');
    assert.deepEqual(before, [[3_000_000, 4_000_000], [630_672, 840_896],
      [164_509, 219_346]]);
    assert.deepEqual(after, [[1_095_658, 1_095_658], ...before.slice(1)]);
  });

for (const property of ['bitrate', 'max-bitrate']) {
  test(`a ${property} that is no number is named and nothing recorded`,
    async () => {
      const { answer, before, after, isCapturing, idle, next } =
        await runHardware(`
          ${start('')}
          const before = applied();
          const answer = attempt(1_500_000);
          const after = applied();
          const isCapturing = addon.isCapturing();
          addon.stopCapture();
          const idle = addon.getStats();
          const seen = collected.packets.length;
          addon.captureSetup(hardwareRequest());
          await until(() => collected.packets.length > seen + 5, 'packets');
          const next = addon.getStats();
          addon.stopCapture();
          report({ answer, before, after, isCapturing, idle, next });
        `, { switches: `text-${property}` });
      assert.equal(answer, 'Error: GStreamer element videoEncoder0 property ' +
        `${property} is not an integer property`);
      assert.deepEqual(after, before);
      assert.equal(isCapturing, true);
      assert.equal(idle.capturing, false);
      assert.deepEqual(idle.branchStats, []);
      assert.equal(next.gstBusErrors, 0);
    });
}
