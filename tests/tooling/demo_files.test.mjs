import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { composeMp4 } from '../../demo/mp4_file.mjs';
import { readOptions } from '../../demo/options.mjs';
import { branchTable } from '../../demo/report.mjs';

const pictureUs = 40_000;
const gapUs = 500_000;
const gapBefore = 20;

let folder;
let packets;

// Access units from another encoder, so that the writer is tried on its own.
// The pause before picture 20 stands for pictures that were left out.
before(() => {
  folder = mkdtempSync(path.join(tmpdir(), 'mp4-'));
  const stream = execFileSync('ffmpeg', [
    '-v', 'error', '-f', 'lavfi', '-i', 'testsrc=size=160x90:rate=25',
    '-frames:v', '50', '-c:v', 'libx264', '-preset', 'ultrafast', '-bf', '0',
    '-g', '10', '-x264-params', 'aud=1:sliced-threads=0', '-f', 'h264', '-',
  ], { maxBuffer: 1 << 26 });
  const delimiter = Buffer.from([0, 0, 0, 1, 9]);
  const begins = [];
  for (let at = stream.indexOf(delimiter); at !== -1;
    at = stream.indexOf(delimiter, at + 1)) {
    begins.push(at);
  }
  packets = begins.map((begin, i) => ({
    payload: stream.subarray(begin, begins[i + 1]),
    timestampUs: 1_000_000 + i * pictureUs + (i >= gapBefore ? gapUs : 0),
    durationUs: pictureUs,
    width: 160,
    height: 90,
    isKeyFrame: i % 10 === 0,
  }));
});
after(() => rmSync(folder, { recursive: true }));

function writeAndProbe(name) {
  const file = path.join(folder, name);
  writeFileSync(file, composeMp4(packets));
  const report = JSON.parse(execFileSync('ffprobe', [
    '-v', 'error', '-of', 'json', '-show_streams', '-show_packets', file,
  ]));
  return { file, report };
}

test('a written file decodes without an error, every picture in it', () => {
  const { file } = writeAndProbe('decode.mp4');
  const frames = execFileSync('ffmpeg', [
    '-v', 'error', '-xerror', '-i', file, '-vsync', 'passthrough',
    '-f', 'framecrc', '-',
  ], { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
  const lines = frames.split('\n').filter((l) => l && !l.startsWith('#'));
  assert.equal(packets.length, 50);
  assert.equal(lines.length, 50);
});

test('a written file shows each picture at its own time', () => {
  const { report } = writeAndProbe('times.mp4');
  const origin = packets[0].timestampUs;
  assert.equal(report.packets.length, packets.length);
  report.packets.forEach(({ pts_time: seconds, flags }, i) => {
    const expected = (packets[i].timestampUs - origin) / 1e6;
    assert.ok(Math.abs(Number(seconds) - expected) < 0.0001, `picture ${i}`);
    assert.equal(flags.startsWith('K'), packets[i].isKeyFrame, `picture ${i}`);
  });
  const length = (50 * pictureUs + gapUs) / 1e6;
  assert.ok(Math.abs(Number(report.streams[0].duration) - length) < 0.001);
  assert.equal(report.streams[0].width, 160);
  assert.equal(report.streams[0].height, 90);
});

test('a stream that begins between keyframes is refused', () => {
  assert.throws(() => composeMp4(packets.slice(1)),
    /does not begin with a keyframe/);
});

test('the command line is checked', () => {
  assert.deepEqual(readOptions([]),
    { seconds: 5, output: 'demo-output', help: false });
  assert.equal(readOptions(['--seconds', '2.5']).seconds, 2.5);
  for (const seconds of ['0', 'soon', '601', '']) {
    assert.throws(() => readOptions(['--seconds', seconds]), /from 1 to 600/);
  }
  assert.throws(() => readOptions(['--fast']), /usage: npm run demo/);
});

test('the table has a line for each branch and its numbers', () => {
  const lines = branchTable([{
    branchIndex: 1, width: 640, height: 360, observedFps: 14.96, targetFps: 15,
    encodedFrames: 75, keyframes: 2, byteRate: 125_000,
    temporalFrameCounts: [19, 18, 38, 0], bridgeDroppedPackets: 3,
  }]).split('\n');
  assert.equal(lines.length, 2);
  assert.deepEqual(lines[1].trim().split(/\s{2,}/),
    ['1', '640x360', '15.0 of 15', '75', '2', '1000', '19/18/38', '3']);
});
