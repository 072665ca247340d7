import assert from 'node:assert/strict';
import { mkdtempSync, readFileSync, readdirSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, test } from 'node:test';

import { runNode } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';

const context = useDisplay({ width: 320, height: 180, scene: { fps: 10 } });
const folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-dots-'));
/** One capture of a host that was told to look. */
let run;
const ended = () => {
  run ??= runNode(`
    const { packets } = collect();
    addon.captureSetup(monitorRequest({
      sourceWidth: 320, sourceHeight: 180, width: 160, height: 90 }));
    await until(() => packets.length > 2, 'packets');
    addon.stopCapture();
    process.exit(0);
  `, {
    display: context.display,
    environment: {
      GST_DEBUG_DUMP_DOT_DIR: folder,
      GST_DEBUG: 'linuxcapture:5',
      GST_DEBUG_NO_COLOR: '1',
    },
  });
  return run;
};

after(() => rmSync(folder, { recursive: true, force: true }));

for (const moment of ['launched', 'playing']) {
  test(`the pipeline is drawn as it is ${moment}`, async () => {
    const { code, stderr } = await ended();
    assert.equal(code, 0, stderr);
    const name = `linux-capture-video-pipeline-${moment}.dot`;
    assert.ok(readdirSync(folder).includes(name),
      readdirSync(folder).join(' '));
    const drawing = readFileSync(path.join(folder, name), 'utf8');
    for (const element of ['ximagesrc', 'LinuxCaptureScreenConverter',
      'LinuxCaptureScreenScaler', 'GstAppSink']) {
      assert.match(drawing, new RegExp(element, 'i'));
    }
  });
}

test('the log of GStreamer names what was repaired, in its order', async () => {
  const { stderr } = await ended();
  const repairs = [...stderr.matchAll(/linuxcapture .* repair (\w+)/g)]
    .map(([, name]) => name);
  assert.equal(repairs[0], 'colorimetry');
  assert.ok(repairs.includes('videorate_latency'));
  assert.ok(repairs.indexOf('x11_guard') <
    repairs.indexOf('x11_picture_hold'));
});
