import assert from 'node:assert/strict';
import { test } from 'node:test';
import { useDisplay } from '../support/display.mjs';
import { checkCapture, withHost } from '../support/host.mjs';
import { withoutPlugins } from '../support/plugin_folder.mjs';
import { monitorRequest } from '../support/requests.mjs';

const context = useDisplay({ width: 320, height: 180, scene: { fps: 30 } });
const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });

for (const [file, element] of [
  ['libgstximagesrc.so', 'ximagesrc'],
  ['libgstvideorate.so', 'videorate'],
  ['libgstapp.so', 'appsink'],
]) {
  test(`the missing element ${element} is named`, async () => {
    await withoutPlugins([file], async (environment) => {
      await withHost({ display: context.display, environment },
        async (host) => {
          for (let time = 0; time < 2; time += 1) {
            await assert.rejects(host.setup(request),
              { name: 'Error', message: `no element "${element}"` });
            assert.equal(await host.isCapturing(), false);
          }
        });
    });
  });
}

test('a process started after the plugin is back captures', async () => {
  await withoutPlugins([], async (environment) => {
    await withHost({ display: context.display, environment },
      (host) => checkCapture(host, request));
  });
});
