import assert from 'node:assert/strict';
import { test } from 'node:test';
import { runHardware } from '../support/hardware.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startVideo } from '../support/pipewire_sources.mjs';

let holder;
let screen;
usePipeWire({
  async prepare(started) {
    screen = await startVideo(started,
      { name: 'screen', width: 640, height: 360 });
    holder = await startHolder(started);
    return [screen, holder];
  },
});

// With the real source, and what it offers to the elements behind it. This
// producer has no memory of a graphics card, so the capture goes no further.
test('the text is one that the elements of this system take', async () => {
  const { message, stages } = await runHardware(`
    const request = hardwareRequest();
    request.portal.pipeWireFd =
      addon.duplicateFdFromPid(${holder.pid}, ${holder.fd});
    request.portal.pipeWireNodeId = ${screen.node.id};
    let message = null;
    try {
      addon.captureSetup(request);
      addon.stopCapture();
    } catch (error) {
      ({ message } = error);
    }
    report({ message });`, { standins: ['nvcodec'], morePlugins: ['pipewire'] });
  assert.ok(stages.includes('captureSetup:video-pipeline-launch:complete'),
    message);
});
