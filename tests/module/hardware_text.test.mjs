import assert from 'node:assert/strict';
import { test } from 'node:test';
import { runHardware } from '../support/hardware.mjs';

// With the real source, since the stand-in offers less memory than the real one
// does to later releases of glupload. No daemon answers it, so the capture fails
// afterwards.
test('the text is one that the elements of this system take', async () => {
  const { message, stages } = await runHardware(`
    try {
      addon.captureSetup(hardwareRequest());
    } catch ({ message }) {
      report({ message });
    }`, { standins: ['nvcodec'], morePlugins: ['pipewire'] });
  assert.ok(stages.includes('captureSetup:video-pipeline-launch:complete'),
    message);
});
