import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { enterDesktop } from './support/cast_capture.mjs';
import { startMutter } from './support/mutter.mjs';
import { recordUse } from './support/recorded_use.mjs';

// A longer one, with a browser and figures: support/measure_use.mjs.
test('GNOME in use: no error, no stale block, pictures throughout',
  async (t) => {
    const desktop = await startMutter();
    enterDesktop(desktop);
    try {
      const use = await recordUse(desktop, { seconds: 8 });
      t.diagnostic(JSON.stringify(use));
      assert.deepEqual(use.errors, []);
      assert.equal(use.decoderErrors, '');
      assert.ok(use.done.moved > 0, 'no window was dragged');
      assert.ok(use.picturesASecond > 5, `${use.picturesASecond} a second`);
      assert.equal(use.staleBlocks, 0);
    } finally {
      addon.stopCapture();
      await desktop.stop();
    }
  });
