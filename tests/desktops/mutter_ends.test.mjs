import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { until } from '../support/until.mjs';
import { enterDesktop, withRequest } from './support/cast_capture.mjs';
import { monitorName, startMutter } from './support/mutter.mjs';

const monitor = ['--monitor', monitorName];
const endings = [
  ['a session that the compositor is asked to end', monitor,
    ({ cast }) => cast.command('stop')],
  ['a session whose client goes away', monitor, ({ cast }) => cast.stop()],
  ['a window that is closed', ['--focused'], ({ window }) => window.stop()],
  ['a compositor that is killed', monitor,
    ({ desktop }) => desktop.compositor.kill()],
];

// One desktop: its compositor is killed last.
test('what ends a stream of GNOME is an error that names it', async (t) => {
  const desktop = await startMutter();
  enterDesktop(desktop);
  try {
    for (const [what, args, end] of endings) {
      await t.test(what, async () => {
        const window = await desktop.startWindow({ width: 400, height: 300 });
        const cast = await desktop.startCast(args);
        await withRequest(desktop, cast.node, {}, async (request) => {
          const collected = collect();
          addon.captureSetup(request);
          await until(() => collected.packets.length > 10, 'pictures');
          await end({ desktop, cast, window });
          // Later versions of PipeWire have something to say of their own.
          const error = await until(() => collected.events.find(
            ({ reason }) => reason ===
              `video: PipeWire target ${cast.node.id} went away`),
          'the error event that names it', 20_000);
          assert.equal(error.state, 'error');
          assert.equal(error.code, 'source-lost');
          // It is the host that ends a capture, and can begin another.
          assert.equal(addon.isCapturing(), true);
          const begin = performance.now();
          addon.stopCapture();
          assert.ok(performance.now() - begin < 5_000);
        });
        await cast.stop();
        await window.stop();
      });
    }
  } finally {
    addon.stopCapture();
    await desktop.stop();
  }
});
