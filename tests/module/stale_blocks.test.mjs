import assert from 'node:assert/strict';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { readNumbers } from '../../bench/lib/decoding.mjs';
import { startBenchScene } from '../../bench/lib/scene.mjs';
import { runCapture } from '../support/capture.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const size = { width: 1280, height: 720 };
const branches = [
  { ...size, fps: 30, bitrate: 6_000_000 },
  { width: 640, height: 360, fps: 20, bitrate: 3_000_000 },
  { width: 320, height: 180, fps: 15, bitrate: 1_000_000 },
];

let folder;
let xvfb;
let scene;
before(async () => {
  folder = mkdtempSync(path.join(tmpdir(), 'stale-blocks-'));
  xvfb = await startXvfb(size);
  process.env.DISPLAY = xvfb.display;
  // A page that stands still below a barcode that counts: its cells are flat
  // and come and go, as small things on a screen do.
  scene = await startBenchScene(xvfb.display, { kind: 'still', hz: 30, size });
});
after(async () => {
  await scene?.stop();
  await xvfb?.stop();
  rmSync(folder, { recursive: true });
});

test('no picture of three temporal layers shows blocks of another', async () => {
  const [primary, ...secondaries] = branches;
  const captured = await runCapture(monitorRequest({
    sourceWidth: size.width,
    sourceHeight: size.height,
    ...primary,
    maxBitrate: primary.bitrate,
    temporalLayerCount: 3,
    branches: secondaries,
  }), { seconds: 6, branchCount: branches.length });
  for (const index of branches.keys()) {
    const packets = captured.ofBranch(index);
    const file = path.join(folder, `${index}.h264`);
    writeFileSync(file, Buffer.concat(packets.map(({ payload }) => payload)));
    const numbers = await readNumbers(file);
    assert.equal(numbers.length, packets.length);
    assert.ok(packets.some(({ temporalIndex }) => temporalIndex === 1));
    // Cells of two pictures in one are no number.
    const wrong = packets
      .map(({ temporalIndex }, i) => ({ i, temporalIndex }))
      .filter(({ i }) => numbers[i] === null);
    assert.deepEqual(wrong, [], `branch ${index}`);
    assert.deepEqual(numbers, [...numbers].sort((a, b) => a - b));
  }
});
