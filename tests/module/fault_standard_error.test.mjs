import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import {
  closeSync, constants, mkdtempSync, openSync, rmSync, writeSync,
} from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { useDisplay } from '../support/display.mjs';
import { checkCapture, withHost } from '../support/host.mjs';
import { monitorRequest } from '../support/requests.mjs';

const context = useDisplay({ width: 320, height: 180, scene: { fps: 30 } });
const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });
const shell = (script) => ['sh', '-c', script, 'sh'];

async function captureTwice(options) {
  await withHost({ display: context.display, ...options }, async (host) => {
    for (let time = 0; time < 2; time += 1) await checkCapture(host, request);
    await assert.rejects(host.setup(7), {
      message: 'captureSetup requires one canonical native capture DTO',
    });
  });
}

test('a host whose standard error is closed captures', async () => {
  await captureTwice({ prefix: shell('exec "$@" 2>&-') });
});

test('a host whose standard error is full captures', async () => {
  await captureTwice({ prefix: shell('exec "$@" 2>/dev/full') });
});

test('a host whose standard error is a full pipe that nobody reads captures',
  async () => {
    const folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-test-'));
    const fifo = path.join(folder, 'fifo');
    execFileSync('mkfifo', [fifo]);
    // Open for both, so that there is a reader, who never reads.
    const stderr = openSync(fifo, 'r+');
    const filler = openSync(fifo, constants.O_WRONLY | constants.O_NONBLOCK);
    try {
      assert.throws(() => {
        for (;;) writeSync(filler, 'x'.repeat(512));
      }, { code: 'EAGAIN' });
      await captureTwice({ stderr });
    } finally {
      closeSync(filler);
      closeSync(stderr);
      rmSync(folder, { recursive: true });
    }
  });
