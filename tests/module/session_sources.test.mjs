import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { listTargets, startCapture } from 'linux-capture-addon/session';
import { useDisplay } from '../support/display.mjs';
import { readNumber } from '../support/picture.mjs';
import { startScene } from '../support/scene.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';

const context = useDisplay({ scene: { width: 320, height: 180 } });

/** Captures some pictures of a source and decodes them. */
async function picturesOf(source) {
  const capture = await startCapture({ source, video: { fps: 15 } });
  try {
    const packets = [];
    for await (const packet of capture.video()) {
      packets.push({ ...packet, payload: packet.data });
      if (packets.length === 8) break;
    }
    return { capture, pictures: await decodeFlawlessly(packets) };
  } finally {
    await capture.stop();
  }
}

test('the primary monitor needs no name, and its name finds it', async () => {
  const { monitors } = await listTargets({ only: 'x11' });
  const primary = monitors.find(({ isPrimary }) => isPrimary) ?? monitors[0];
  for (const source of [
    { type: 'monitor' }, { type: 'monitor', name: primary.name },
  ]) {
    const { capture } = await picturesOf(source);
    assert.deepEqual(capture.source, {
      type: 'monitor',
      name: primary.name,
      geometry: { x: 0, y: 0, width: 640, height: 360 },
    });
    assert.equal(capture.branches[0].width, 640);
  }
});

test('a window is captured in its own size', async () => {
  const { capture, pictures } =
    await picturesOf({ type: 'window', id: context.scene.window });
  assert.equal(capture.source.id, context.scene.window);
  const [{ width, height }] = capture.branches;
  assert.deepEqual([width, height], [320, 180]);
  assert.ok(pictures.every((picture) => readNumber(picture) !== null));
});

test('a window that is closed ends the capture', async () => {
  const scene = await startScene({
    display: context.display, width: 200, height: 100, x: 400, y: 200,
  });
  try {
    const capture = await startCapture({
      source: { type: 'window', id: scene.window },
    });
    const read = assert.rejects(async () => {
      for await (const packet of capture.video()) {
        if (packet.isKeyframe) scene.closeWindow();
      }
    }, { code: 'ERR_CAPTURE_VIDEO' });
    await read;
    assert.equal((await capture.ended).reason, 'error');
  } finally {
    await scene.stop();
  }
});

describe('what is not there', () => {
  const cases = [
    [{ type: 'monitor', name: 'NO-1' }, /^there is no monitor "NO-1"; there/],
    [{ type: 'window', id: 1 }, /^there is no window with id 1; there/],
    [{ type: 'window', title: 'no such' }, /^there is no window with title/],
    [{ type: 'window', processId: 2 ** 30 }, /window with processId/],
  ];
  for (const [source, message] of cases) {
    test(`${JSON.stringify(source)} is told`, async () => {
      await assert.rejects(startCapture({ source }),
        { code: 'ERR_CAPTURE_NOT_FOUND', message });
    });
  }
});
