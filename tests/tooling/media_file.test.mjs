import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { avcCodec } from '../../lib/command/recording/avc_description.mjs';
import { MediaFile } from '../../lib/command/recording/media_file.mjs';
import { OggPackets } from '../../lib/command/recording/ogg_packets.mjs';
import { OutputFile } from '../../lib/command/recording/output_file.mjs';
import { encodedPackets } from '../support/encoded_packets.mjs';

const pictureUs = 40_000;
const gapUs = 500_000;
const gapBefore = 20;

let folder;
let packets;

// Access units from another encoder, so that the writer is tried on its own.
// The pause before picture 20 stands for pictures that were left out.
before(() => {
  folder = mkdtempSync(path.join(tmpdir(), 'mp4-'));
  packets = encodedPackets({ source: 'testsrc', pictures: 50, keyframeEvery: 10 })
    .map((packet, i) => ({ ...packet,
      timestampUs: packet.timestampUs + (i >= gapBefore ? gapUs : 0) }));
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

test('what is no keyframe and no Ogg is told', () => {
  assert.throws(() => avcCodec(Buffer.from('0000000165880000000141', 'hex')),
    /^Error: the keyframe has no description of its stream$/);
  assert.throws(() => new OggPackets().add(Buffer.alloc(64)),
    /^Error: what the encoder sends is no Ogg$/);
});
