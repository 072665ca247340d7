import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { MediaFile } from '../../lib/command/recording/media_file.mjs';
import { OutputFile } from '../../lib/command/recording/output_file.mjs';

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
    data: stream.subarray(begin, begins[i + 1]),
    timestampUs: 1_000_000 + i * pictureUs + (i >= gapBefore ? gapUs : 0),
    durationUs: pictureUs,
    width: 160,
    height: 90,
    isKeyframe: i % 10 === 0,
  }));
});
after(() => rmSync(folder, { recursive: true }));

async function writeAndProbe(name) {
  const file = path.join(folder, name);
  const writer = new MediaFile(new OutputFile(file));
  await writer.start();
  for (const packet of packets) await writer.addVideo(packet);
  await writer.close();
  const report = JSON.parse(execFileSync('ffprobe', [
    '-v', 'error', '-of', 'json', '-show_streams', '-show_packets', file,
  ]));
  return { file, report };
}

test('a written file decodes without an error, every picture in it', async () => {
  const { file } = await writeAndProbe('decode.mp4');
  const frames = execFileSync('ffmpeg', [
    '-v', 'error', '-xerror', '-i', file, '-vsync', 'passthrough',
    '-f', 'framecrc', '-',
  ], { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
  const lines = frames.split('\n').filter((l) => l && !l.startsWith('#'));
  assert.equal(packets.length, 50);
  assert.equal(lines.length, 50);
});

test('a written file shows each picture at its own time', async () => {
  const { report } = await writeAndProbe('times.mp4');
  const origin = packets[0].timestampUs;
  assert.equal(report.packets.length, packets.length);
  report.packets.forEach(({ pts_time: seconds, flags }, i) => {
    const expected = (packets[i].timestampUs - origin) / 1e6;
    assert.ok(Math.abs(Number(seconds) - expected) < 0.0001, `picture ${i}`);
    assert.equal(flags.startsWith('K'), packets[i].isKeyframe, `picture ${i}`);
  });
  const length = (50 * pictureUs + gapUs) / 1e6;
  assert.ok(Math.abs(Number(report.streams[0].duration) - length) < 0.001);
  assert.equal(report.streams[0].width, 160);
  assert.equal(report.streams[0].height, 90);
});
