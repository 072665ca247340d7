import assert from 'node:assert/strict';
import { test } from 'node:test';

import {
  continuityOf, latenciesNs, median, pairedRatios, quantile, spreadOf,
  steadinessOf,
} from '../../bench/lib/figures.mjs';
import { readOptions } from '../../bench/lib/options.mjs';
import { encoderShare, growthFigures } from
  '../../bench/lib/growth_figures.mjs';
import { growthPoints } from '../../bench/lib/growth_points.mjs';
import { purposeOf, stageShares } from '../../bench/lib/profile.mjs';
import { machineSeconds } from '../../bench/lib/processor.mjs';
import { evenly, parseComparison } from '../../bench/lib/quality.mjs';
import { parseDrawnNs } from '../../bench/lib/scene.mjs';
import { scenarios } from '../../bench/lib/scenarios.mjs';
import { sides } from '../../bench/lib/sides.mjs';
import { formatTable, spreadText } from '../../bench/lib/table.mjs';
import { scenarioReport } from '../../bench/lib/report.mjs';
import { judge } from '../../bench/lib/targets.mjs';

const ms = 1e6;
const sceneNs = 1e9 / 60;
const branchNs = 1e9 / 30;
const always = { beginNs: 0, endNs: Infinity };

/** A scene of 60 pictures a second, drawn from one second on. */
const drawnNs = new Map(Array.from({ length: 600 },
  (_, number) => [number, 1e9 + number * sceneNs]));

const picturesOf = (numbers, latencyNs = 40 * ms) => numbers.map((number) =>
  ({ number, arrivalNs: drawnNs.get(number) + latencyNs }));

const everySecond = Array.from({ length: 100 }, (_, i) => 2 * i);

test('quantiles lie between the values around them', () => {
  assert.equal(median([3, 1, 2]), 2);
  assert.equal(median([4, 1, 2, 3]), 2.5);
  assert.equal(quantile([0, 10, 20, 30, 40], 0.99), 39.6);
  assert.equal(quantile([7], 0.99), 7);
  assert.equal(median([]), null);
});

test('a spread leaves out the runs without a value', () => {
  assert.deepEqual(spreadOf([3, NaN, 1]),
    { median: 2, least: 1, greatest: 3, count: 2 });
  assert.equal(spreadOf([NaN]), null);
  assert.equal(spreadText([1, null, 3], 1), '2.0 (1.0..3.0)');
  assert.equal(spreadText([undefined]), '-');
});

test('ratios are those of runs made side by side', () => {
  assert.deepEqual(pairedRatios([1, 4], [2, 4]), [0.5, 1]);
  assert.deepEqual(pairedRatios([1, 4, 9], [2]), [0.5]);
});

test('latency runs from the drawing to the first packet that shows it', () => {
  const pictures = [
    { number: 0, arrivalNs: 1e9 + 30 * ms },
    { number: 0, arrivalNs: 1e9 + 60 * ms },
    { number: null, arrivalNs: 1e9 + 70 * ms },
    { number: 3, arrivalNs: 1e9 + 3 * sceneNs + 45 * ms },
    { number: 999, arrivalNs: 2e9 },
  ];
  assert.deepEqual(
    latenciesNs(pictures, drawnNs, always).map((ns) => Math.round(ns / ms)),
    [30, 45]);
});

test('a picture first seen before the window is not seen anew in it', () => {
  const window = { beginNs: 1e9 + 50 * ms, endNs: 2e9 };
  const pictures = [
    { number: 0, arrivalNs: 1e9 + 30 * ms },
    { number: 0, arrivalNs: 1e9 + 60 * ms },
  ];
  assert.deepEqual(latenciesNs(pictures, drawnNs, window), []);
});

const continuity = (numbers) => continuityOf(
  picturesOf(numbers), drawnNs, always, { branchNs, sceneNs });

test('a regular capture has lost nothing', () => {
  const result = continuity(everySecond);
  assert.equal(result.lost, 0);
  assert.equal(result.delivered, 100);
  assert.equal(result.distinct, 100);
  assert.equal(result.repeated, 0);
  assert.equal(Math.round(result.longestGapNs / ms), 33);
});

test('a capture that is a scene period early or late loses nothing', () => {
  const wavering = everySecond.map((number, i) => number + (i % 3 === 0));
  assert.equal(continuity(wavering).lost, 0);
  assert.equal(continuity([1, ...everySecond.slice(1)]).lost, 0);
  const late = [...everySecond];
  late[99] += 1;
  assert.equal(continuity(late).lost, 0);
});

test('pictures left out are counted, one by one and in a row', () => {
  const missing = new Set([10, 30, 31, 32, 70]);
  const result = continuity(everySecond.filter((_, i) => !missing.has(i)));
  assert.equal(result.lost, 5);
  assert.equal(Math.round(result.longestGapNs / ms), 133);
});

test('a repeated picture does not make up for a lost one', () => {
  const numbers = [...everySecond];
  numbers[50] = numbers[49];
  const result = continuity(numbers);
  assert.equal(result.lost, 1);
  assert.equal(result.repeated, 1);
  assert.equal(result.delivered, 100);
});

test('only what arrives in the window counts', () => {
  const pictures = picturesOf(everySecond);
  const window = {
    beginNs: pictures[20].arrivalNs, endNs: pictures[60].arrivalNs,
  };
  const result =
    continuityOf(pictures, drawnNs, window, { branchNs, sceneNs });
  assert.equal(result.delivered, 40);
  assert.equal(result.lost, 0);
});

test('an unreadable picture is neither a repeat nor a different one', () => {
  const pictures = picturesOf(everySecond);
  pictures[5].number = null;
  const result =
    continuityOf(pictures, drawnNs, always, { branchNs, sceneNs });
  assert.equal(result.unreadable, 1);
  assert.equal(result.repeated, 0);
  assert.equal(result.distinct, 99);
});

test('a still scene is judged by the packets that came', () => {
  const pictures = Array.from({ length: 31 },
    (_, i) => ({ number: 0, arrivalNs: i * branchNs + (i % 2) * 5 * ms }));
  assert.equal(steadinessOf(pictures, always, branchNs).lost, 0);
  pictures.splice(10, 4);
  const result = steadinessOf(pictures, always, branchNs);
  assert.equal(result.lost, 4);
  assert.equal(result.delivered, 27);
});

test('nothing delivered is no figure, not a good one', () => {
  assert.equal(continuity([]).lost, null);
  assert.equal(steadinessOf([], always, branchNs).lost, null);
});

test('the log of the scene gives the drawing times', () => {
  assert.deepEqual([...parseDrawnNs('0 100\n1 250\n2 3')],
    [[0, 100], [1, 250], [2, 3]]);
});

test('pictures to compare are spread over all of them', () => {
  assert.deepEqual(evenly([1, 2, 3], 8), [1, 2, 3]);
  assert.deepEqual(evenly([0, 1, 2, 3, 4, 5, 6, 7, 8], 3), [0, 4, 8]);
});

test('the closing lines of the comparison are read', () => {
  const text = '[Parsed_psnr_1] PSNR y:30.1 u:40 v:41 average:31.25 min:3\n' +
    '[Parsed_ssim_2] SSIM Y:0.9 (1) U:0.9 (1) V:0.9 (1) All:0.975 (16)\n';
  assert.deepEqual(parseComparison(text), { psnr: 31.25, ssim: 0.975 });
  assert.throws(() => parseComparison('PSNR nothing'), /no comparison/);
});

const runOf = (processorPerSecond, latency, lost = 0, p99 = 1.5 * latency) => ({
  processorPerSecond,
  branches: [{
    lost, distinct: 240, latencyNs: latency * ms, latencyP99Ns: p99 * ms,
  }],
});
const oneMoving = scenarios.find(({ name }) => name === 'one-moving');

test('targets are judged on the medians of paired runs', () => {
  const results = {
    module: [runOf(0.30, 20), runOf(0.33, 21), runOf(0.90, 22)],
    gst: [runOf(0.50, 30), runOf(0.50, 30), runOf(0.90, 30)],
    'gst-colour': [runOf(0.35, 30), runOf(0.35, 30), runOf(0.90, 20.5)],
    ffmpeg: [runOf(0.2, 21.5), runOf(0.2, 21.5), runOf(0.2, 21.5)],
  };
  assert.deepEqual(judge(results, oneMoving, 8).map(({ isMet }) => isMet),
    [true, false, true, true, true]);
});

test('the encoder\'s own share is told beside the ratio', () => {
  const results = {
    module: [runOf(0.4, 20)], gst: [runOf(0.5, 20)],
    limit: [{ processorPerSecond: 0.45, encodingPerSecond: 0.3 }],
  };
  const [{ text, isMet }] = judge(results, oneMoving, 8);
  assert.match(text, /^processor time 0\.80 of gst's/);
  assert.match(text, /the bare encoders alone 0\.60\), at most 0\.70$/);
  assert.equal(isMet, false);
});

test('losses, slowness and a long tail fail their targets', () => {
  const results = { module: [runOf(0.3, 40, 2, 81)], ffmpeg: [runOf(1, 39)] };
  const verdicts = judge(results, oneMoving, 8);
  assert.deepEqual(verdicts.map(({ isMet }) => isMet), [false, false, false]);
  assert.match(verdicts[0].text, /^2 pictures lost/);
  assert.match(verdicts[2].text, /2\.0[23] times/);
});

test('nothing is judged without the module', () => {
  assert.deepEqual(judge({ gst: [runOf(1, 1)] }, oneMoving, 8), []);
});

test('a machine that did other work is warned of', () => {
  const branch = { lost: 0, repeated: 0, distinct: 240, longestGapNs: 4e7,
    latencyNs: 4e7, latencyP99Ns: 5e7, bitrate: 1e6, quality: null };
  const report = (elsewherePerSecond) => scenarioReport(oneMoving, {
    module: [{ processorPerSecond: 0.4, elsewherePerSecond, firstNs: 1e8,
      peakMemory: 1e8, branches: [branch] }],
  }, { seconds: 8, runs: 1, markdown: false, sides: [sides[0]] }).join('\n');
  assert.doesNotMatch(report(0.2), /WARNING/);
  assert.match(report(0.9), /WARNING: the machine did other work/);
  // 240 pictures of 0.9216 megapixels in 8 seconds.
  assert.match(report(0.2), /this module +0\.400 +14\.5 /);
});

test('the machine has been busy with everything but waiting', () => {
  const text = 'cpu  100 20 30 9999 5000 4 6 7 0 0\ncpu0 1 1 1 1\n';
  const ratio = machineSeconds(text) / 160;
  assert.ok([1 / 100, 1 / 250, 1 / 1000].includes(ratio), String(ratio));
});

test('tables are aligned, or Markdown', () => {
  const rows = [['side', 'n'], ['module', '1'], ['x', '10']];
  assert.equal(formatTable(rows), 'side     n\nmodule   1\nx       10');
  assert.equal(formatTable(rows, { markdown: true }),
    '| side   |  n |\n| ------ | --: |\n| module |  1 |\n| x      | 10 |');
});

test('samples are given to the stage they belong to', () => {
  const shares = stageShares([
    ' 50.00% |queue1:src    |libopenh264.so.2.3.1 |[.] Encode',
    ' 20.00% |queue0:src    |orcexec.abc (deleted)|[.] 0x12',
    ' 10.00% |queue2:src    |orcexec.abc (deleted)|[.] 0x12',
    '  5.00% |queue1:src    |linux_capture_addon.node|[.] EmitVideoPacket',
    '  5.00% |queue1:src    |linux_capture_addon.node|[.] ScaleRow',
    '  4.00% |node          |node                 |[.] Run',
    '  3.00% |ximagesrc0:src|libc.so.6            |[.] memcpy',
    '  3.00% |queue1:src    |libc.so.6            |[.] memcpy',
    'nonsense',
  ].join('\n'));
  assert.deepEqual(
    Object.fromEntries([...shares].map(([stage, share]) =>
      [stage, Math.round(share * 100)])),
    { source: 3, conversion: 35, encoder: 50, 'packets and bridge': 5,
      JavaScript: 4, rest: 3 });
  assert.equal(purposeOf('queue0:src'), 'conversion');
  assert.equal(purposeOf('queue2:src'), 'scaling, encoder and packets');
});

test('the command line chooses scenarios and sides by name', () => {
  const all = readOptions([]);
  assert.deepEqual(all.scenarios, [...scenarios]);
  assert.deepEqual(all.sides, [...sides]);
  const some = readOptions(['--only', 'one-still,module', '--runs', '2']);
  assert.deepEqual(some.scenarios.map(({ name }) => name), ['one-still']);
  assert.deepEqual(some.sides.map(({ name }) => name), ['module']);
  assert.equal(some.runs, 2);
  assert.throws(
    () => readOptions(['--only', 'modul']), /does not know "modul"/);
  assert.throws(() => readOptions(['--seconds', '0']), /from 2 to 600/);
  assert.throws(() => readOptions(['--quick']), /usage: npm run bench/);
});

test('growth: every dimension is measured, and quickly a few of all', () => {
  const points = growthPoints(false);
  const all = (valueOf) => [...new Set(points.map(valueOf))];
  assert.deepEqual(all(({ screen }) => screen.height).sort((a, b) => a - b),
    [360, 720, 1080, 1440, 2160]);
  assert.deepEqual(all(({ branches: [{ fps }] }) => fps).sort(), [15, 30, 60]);
  assert.deepEqual(all(({ branches }) => branches.length).sort(), [1, 2, 3]);
  assert.deepEqual(all(({ layers }) => layers).sort(), [1, 2, 3]);
  assert.deepEqual(all(({ scene }) => scene.kind).sort(),
    ['film', 'moving', 'still', 'terminal']);
  assert.equal(new Set(points.map(({ name }) => name)).size, points.length);
  assert.ok(growthPoints(true).length < 10);
});

test('growth: no scene keeps the processors from the capture', () => {
  for (const { screen, scene, branches: [{ fps }] } of growthPoints(false)) {
    if (scene.kind === 'still') continue;
    assert.ok(scene.hz >= fps);
    assert.ok(scene.hz <= 2 * fps);
    if (scene.hz > fps) {
      assert.ok(scene.hz * screen.width * screen.height <= 500e6);
    }
  }
});

test('growth: what is measured once can be measured more often', () => {
  const chosen = (...args) => {
    const { seconds, runs } = readOptions(args);
    return { seconds, runs };
  };
  assert.deepEqual(chosen(), { seconds: 8, runs: 3 });
  assert.deepEqual(chosen('--growth'), { seconds: 5, runs: 1 });
  assert.deepEqual(chosen('--growth', '--seconds', '20', '--runs', '2'),
    { seconds: 20, runs: 2 });
  // To start and to read one takes about as long again.
  assert.ok(growthPoints(false).length * 5 <= 5 * 60);
});

test('growth: branches are ones that the module keeps', () => {
  for (const { branches } of growthPoints(false)) {
    for (let i = 1; i < branches.length; i += 1) {
      for (const value of ['width', 'height', 'fps']) {
        assert.ok(branches[i][value] < branches[i - 1][value]);
      }
    }
  }
});

test('growth: the encoder is what was sampled in its library, or below', () => {
  const own = ' 7f2f (/usr/lib/libopenh264.so.7)\n' +
    ' 7f21 (/opt/linux_capture_addon.node)\n\n';
  const copying = ' 7e10 (/usr/lib/libc.so.6)\n 7f30 (libopenh264.so.2.3.1)\n\n';
  const others = ' 7f2e (/opt/libopenh264.so.7/bin/node)\n\n' +
    'ffffffff82 ([kernel.kallsyms])\n 7e10 (/usr/lib/libc.so.6)\n\n';
  assert.equal(encoderShare(own + copying + others), 0.5);
  assert.equal(encoderShare(own), 1);
  assert.equal(encoderShare(others), 0);
  assert.equal(encoderShare('\n'), null);
  assert.equal(encoderShare(''), null);
});

test('growth: figures are judged by what was delivered', () => {
  const point = growthPoints(true)
    .find(({ screen, branches }) => screen.height === 1080 &&
      branches[0].fps === 30);
  const branch = { delivered: 60, distinct: 60, lost: 60,
    longestGapNs: 200 * ms, latencyNs: 80 * ms, latencyP99Ns: 160 * ms };
  const { cost, encoderCost, otherShare, otherNsOfPicture, gapPeriods,
    p99Periods, remarks } = growthFigures(point, {
    window: { beginNs: 0, endNs: 4000 * ms, processorPerSecond: 0.5,
      peakMemory: 1 },
    sampled: `${'1f (/lib/libopenh264.so.7)\n\n'.repeat(4)}2f (/bin/node)`,
    branches: [branch],
  });
  // Half a second for 15 pictures of 2.07 megapixels.
  assert.ok(Math.abs(cost - 500 / (15 * 1920 * 1080 / 1e6)) < 1e-9);
  assert.ok(Math.abs(encoderCost / cost - 0.8) < 1e-9);
  assert.ok(Math.abs(otherShare - 0.2) < 1e-9);
  // A fifth of two seconds, for 60 pictures.
  assert.ok(Math.abs(otherNsOfPicture - 0.4e9 / 60) < 1e-3);
  // 15 a second came, one in 66.7 ms.
  assert.ok(Math.abs(gapPeriods - 3) < 1e-9);
  assert.ok(Math.abs(p99Periods - 2.4) < 1e-9);
  assert.equal(remarks.length, 1);
  assert.match(remarks[0], /not the encoder is 20\.0 %/);
});
