import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, readdirSync, rmSync, statSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { Pieces } from '../../lib/command/recording/pieces.mjs';
import { encodedPackets } from '../support/encoded_packets.mjs';

let folder;
let packets;
before(() => {
  folder = mkdtempSync(path.join(tmpdir(), 'pieces-'));
  packets = encodedPackets({ source: 'testsrc2', pictures: 500,
    keyframeEvery: 25, width: 320, height: 180 });
});
after(() => rmSync(folder, { recursive: true }));

const silence = ({ timestampUs, durationUs }) => ({
  type: 'audio', timestampUs: timestampUs - 7_000, durationUs,
  samples: new Int16Array(2 * 48 * durationUs / 1000),
});

for (const ending of ['mp4', 'mkv']) {
  for (const hasAudio of [true, false]) {
    test(`no .${ending} with${hasAudio ? '' : 'out'} sound is larger than it ` +
      'may be, and no picture is lost', async () => {
      const bytes = 400_000;
      const name = `sized-${hasAudio}`;
      const told = [];
      const pieces = new Pieces(path.join(folder, `${name}.${ending}`),
        { bytes, onFile: (file) => told.push(file) });
      await pieces.begin({ hasAudio, forceKeyframe() {} });
      for (const packet of packets) {
        await pieces.addVideo(packet);
        if (hasAudio) await pieces.addAudio(silence(packet));
      }
      await pieces.close();
      const names = readdirSync(folder)
        .filter((file) => file.startsWith(name) && file.endsWith(ending))
        .sort();
      assert.deepEqual(names, told.map((file) => path.basename(file.name)));
      assert.ok(names.length >= 3, names.join(' '));
      let pictures = 0;
      for (const [index, file] of names.entries()) {
        const { size } = statSync(path.join(folder, file));
        assert.ok(size <= bytes, `${file}: ${size} bytes`);
        // Nor is a file cut off long before it is full.
        assert.ok(index === names.length - 1 || size > bytes / 2,
          `${file}: ${size} bytes`);
        const { stdout, stderr } = spawnSync('ffprobe', ['-v', 'warning',
          '-count_frames', '-select_streams', 'v', '-show_streams', '-of',
          'json', path.join(folder, file)], { encoding: 'utf8' });
        assert.equal(stderr, '');
        const { streams } = JSON.parse(stdout);
        pictures += Number(streams[0].nb_read_frames);
      }
      assert.equal(pictures, packets.length);
      assert.equal(pieces.pictures, packets.length);
    });
  }
}

test('a keyframe is asked for where a file is nearly full', async () => {
  let asked = 0;
  const pieces = new Pieces(path.join(folder, 'urgent.mp4'), { bytes: 100_000 });
  await pieces.begin({ hasAudio: false, forceKeyframe: () => {
    asked += 1;
  } });
  const [keyframe, ...rest] = packets;
  await pieces.addVideo(keyframe);
  for (const packet of rest.slice(0, 40)) {
    await pieces.addVideo({ ...packet, isKeyframe: false });
    if (asked > 0) break;
  }
  assert.equal(asked, 1);
  await pieces.close();
});
