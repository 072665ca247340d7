import assert from 'node:assert/strict';
import { test } from 'node:test';
import { useDisplay } from '../support/display.mjs';
import { checkCapture, withHost } from '../support/host.mjs';
import { asOrdinaryUser, limitThreads, threadsOfUser } from '../support/limits.mjs';
import { monitorRequest, windowRequest } from '../support/requests.mjs';

const size = { width: 320, height: 180 };
const context = useDisplay({ ...size, scene: { fps: 30 } });
const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });

const openAll = async (host, spare) => host.call(async ({ kept }, wanted) => {
  const { closeSync, openSync } = await import('node:fs');
  kept.descriptors = [];
  let code;
  while (code === undefined) {
    try {
      kept.descriptors.push(openSync('/dev/null'));
    } catch (error) {
      ({ code } = error);
    }
  }
  for (let i = 0; i < wanted; i += 1) closeSync(kept.descriptors.pop());
  return code;
}, spare);

const closeAll = (host) => host.call(async ({ kept }) => {
  const { closeSync } = await import('node:fs');
  for (const fd of kept.descriptors) closeSync(fd);
});

test('a process without a file descriptor left is told so', async () => {
  await withHost({
    display: context.display, prefix: ['prlimit', '--nofile=128:128'],
  }, async (host) => {
    assert.equal(await openAll(host, 0), 'EMFILE');
    await assert.rejects(host.setup(request), {
      name: 'Error',
      message: 'the capture could not be started with 0 file descriptors ' +
        'left: Too many open files',
    });
    assert.equal(await host.isCapturing(), false);
    await closeAll(host);
    await checkCapture(host, request);
  });
});

for (const spare of [5, 8, 11]) {
  test(`a process with ${spare} file descriptors left captures`, async () => {
    await withHost({
      display: context.display, prefix: ['prlimit', '--nofile=128:128'],
    }, async (host) => {
      assert.equal(await openAll(host, spare), 'EMFILE');
      await checkCapture(host, request);
    });
  });
}

test('a capture outlives file descriptors that run out later', async () => {
  await withHost({
    display: context.display, prefix: ['prlimit', '--nofile=128:128'],
  }, async (host) => {
    await host.setup(request);
    await host.packets();
    assert.equal(await openAll(host, 0), 'EMFILE');
    await host.packets(20);
    assert.deepEqual(await host.errorEvents(), []);
    await host.stop();
    await closeAll(host);
    await checkCapture(host, request);
  });
});

test('a process that may start no thread is told so', async () => {
  await withHost({ display: context.display, prefix: asOrdinaryUser },
    async (host) => {
      // Node has started all of its own threads once it answers.
      assert.equal(await host.isCapturing(), false);
      const lift = await limitThreads(host.pid, 1);
      await assert.rejects(host.setup(request), {
        name: 'Error',
        message: 'the capture needs 6 threads and no more can be started: ' +
          'Resource temporarily unavailable',
      });
      assert.equal(await host.isCapturing(), false);
      await lift();
      await checkCapture(host, request);
    });
});

test('a second capture needs no more threads than the first has left',
  async () => {
    await withHost({ display: context.display, prefix: asOrdinaryUser },
      async (host) => {
        await host.setup(request);
        await host.packets();
        const most = await threadsOfUser(host.pid);
        await host.stop();
        const lift = await limitThreads(host.pid, most);
        await checkCapture(host, request);
        await lift();
      });
  });

for (const [what, capture] of [
  ['16384 by 16384', { width: 16_384, height: 16_384 }],
  ['a bitrate of one bit a second',
    { bitrate: 1, minBitrate: 1, maxBitrate: 1 }],
]) {
  test(`an encoder that refuses ${what} is named`, async () => {
    await withHost({ display: context.display }, async (host) => {
      await assert.rejects(
        host.setup(windowRequest({
          handle: context.scene.window, ...size, ...capture,
        })),
        {
          name: 'Error',
          message: /^OpenH264 InitializeExt failed for branch 0 result=\d+$/,
        });
      assert.equal(await host.isCapturing(), false);
      assert.deepEqual((await host.stats()).branchStats, []);
      await checkCapture(host, request);
    });
  });
}

test('a size that no element can make is an error and no more', async () => {
  await withHost({ display: context.display }, async (host) => {
    await assert.rejects(
      host.setup(windowRequest({
        handle: context.scene.window, width: 65_536, height: 16,
      })),
      { name: 'Error', message: /width=\(int\)65536/ });
    await checkCapture(host, request);
  });
});
