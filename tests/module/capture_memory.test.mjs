import assert from 'node:assert/strict';
import { test } from 'node:test';
import { useDisplay } from '../support/display.mjs';
import { checkCapture, withHost } from '../support/host.mjs';
import { monitorRequest } from '../support/requests.mjs';

const context = useDisplay({ width: 320, height: 180, scene: { fps: 30 } });
const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });

// Pictures come from the X server in memory that both share.
const countSharedMemory = (host) => host.call(async () => {
  const { readFileSync } = await import('node:fs');
  return readFileSync('/proc/self/maps', 'utf8').match(/\/SYSV/g)?.length ?? 0;
});

test('captures of the X11 screen give all their shared memory back',
  async () => {
    await withHost({ display: context.display }, async (host) => {
      for (let capture = 0; capture < 3; capture += 1) {
        await host.setup(request);
        await host.packets();
        assert.notEqual(await countSharedMemory(host), 0);
        await host.stop();
        assert.equal(await countSharedMemory(host), 0);
      }
      await checkCapture(host, request);
    });
  });
