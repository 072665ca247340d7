import assert from 'node:assert/strict';
import { test } from 'node:test';
import { followsFormats } from '../support/pipewire_version.mjs';
import { enterDesktop } from './support/cast_capture.mjs';
import { startKwin } from './support/kwin.mjs';
import { startTerminal } from './support/real_use.mjs';
import { recordWindowUse } from './support/recorded_window_use.mjs';

// A longer one, with a browser and figures: support/measure_window_use.mjs.
test('a window of KDE in use: no error but at its sizes, no stale block',
  async (t) => {
    const seconds = 5;
    const desktop = await startKwin({ width: 640, height: 360 });
    enterDesktop(desktop);
    const stop = await startTerminal(desktop, seconds);
    try {
      const use = await recordWindowUse(desktop,
        { title: 'printing', seconds });
      t.diagnostic(JSON.stringify(use));
      assert.deepEqual(use.errors, []);
      assert.equal(use.isActive, true);
      assert.equal(use.decoderErrors, '');
      // The pointer has dragged the window's corner.
      if (!followsFormats) {
        assert.ok(use.reopened > 0, 'it kept its size');
      }
      assert.ok(use.picturesASecond > 1, `${use.picturesASecond} a second`);
      assert.equal(use.staleBlocks, 0);
    } finally {
      await stop();
      await desktop.stop();
    }
  });
