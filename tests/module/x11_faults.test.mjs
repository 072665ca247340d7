import assert from 'node:assert/strict';
import { test } from 'node:test';
import { startNode } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';
import { waitForText } from '../support/processes.mjs';
import { startScene } from '../support/scene.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const size = { width: 320, height: 180 };
const context = useDisplay({ ...size, scene: { fps: 30 } });

// The host under test: it captures, waits for trouble, and captures again on
// the display that it is then told.
const host = (request) => `
  const { createInterface } = await import('node:readline');
  const lines = createInterface({ input: process.stdin })[
    Symbol.asyncIterator]();
  const collected = collect();
  addon.captureSetup(${request});
  await until(() => collected.packets.length > 5, 'packets');
  console.log('capturing');

  const isError = ({ state }) => state === 'error';
  await until(() => collected.events.some(isError), 'the error event');
  const { gstBusErrors, lastGstBusError } = addon.getStats();
  console.log('error ' + JSON.stringify({
    event: collected.events.find(isError), gstBusErrors, lastGstBusError,
    capturing: addon.isCapturing(),
  }));
  addon.stopCapture();

  process.env.DISPLAY = (await lines.next()).value;
  const packets = collect().packets;
  addon.captureSetup(monitorRequest({ sourceWidth: 320, sourceHeight: 180 }));
  await until(() => packets.length > 5, 'packets of a second capture');
  addon.stopCapture();
  console.log('recovered');
  process.exit(0);
`;

async function expectSurvival({ request, display, makeTrouble, goOn }) {
  const node = startNode(host(request), { display });
  const { child, stdout } = node;
  let ended;
  try {
    await waitForText(child, stdout, /^capturing$/m, 'the capture runs');
    await makeTrouble();
    const [, text] = await waitForText(
      child, stdout, /^error (.*)$/m, 'the error is reported');
    const { event, gstBusErrors, lastGstBusError, capturing } =
      JSON.parse(text);
    assert.match(event.reason, /^video: ./);
    assert.equal(event.width, size.width);
    assert.equal(event.height, size.height);
    assert.ok(gstBusErrors >= 1);
    assert.match(lastGstBusError, /^video: ./);
    assert.equal(capturing, true, 'only the host ends a capture');
    child.stdin.write(`${await goOn()}\n`);
    ended = await node.end(15_000);
  } finally {
    child.kill('SIGKILL');
  }
  assert.equal(ended.signal, null, ended.stderr);
  assert.equal(ended.code, 0, ended.stderr);
  assert.match(ended.stdout, /^recovered$/m);
}

test('the host outlives the window that it captures', async () => {
  const scene = await startScene({
    ...size, display: context.display, fps: 30,
  });
  try {
    await expectSurvival({
      request: `windowRequest({ handle: ${scene.window} })`,
      display: context.display,
      makeTrouble: () => scene.closeWindow(),
      goOn: () => context.display,
    });
  } finally {
    await scene.stop();
  }
});

test('the host outlives the program whose window it captures', async () => {
  const scene = await startScene({
    ...size, display: context.display, fps: 30,
  });
  await expectSurvival({
    request: `windowRequest({ handle: ${scene.window} })`,
    display: context.display,
    makeTrouble: () => scene.stop(),
    goOn: () => context.display,
  });
});

for (const [what, end] of [
  ['is killed', (xvfb) => xvfb.kill()],
  ['ends', (xvfb) => xvfb.stop()],
]) {
  test(`the host outlives an X server that ${what}`, async () => {
    const doomed = await startXvfb(size);
    await expectSurvival({
      request: 'monitorRequest({ sourceWidth: 320, sourceHeight: 180 })',
      display: doomed.display,
      makeTrouble: () => end(doomed),
      goOn: () => context.display,
    });
  });
}
