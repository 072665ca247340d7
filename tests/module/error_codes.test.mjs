import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { withHost } from '../support/host.mjs';
import { withoutPlugins } from '../support/plugin_folder.mjs';
import { monitorRequest, windowRequest } from '../support/requests.mjs';
import { startScene } from '../support/scene.mjs';
import { desktopOf } from '../support/x_tools.mjs';
import { startXvfb } from '../support/xvfb.mjs';

let xvfb;
before(async () => {
  xvfb = await startXvfb({ width: 320, height: 180 });
});
after(() => xvfb?.stop());

const screen = { sourceWidth: 320, sourceHeight: 180 };

for (const [name, run, expected] of [
  ['a request that is none', () => addon.captureSetup(),
    { name: 'Error', code: 'invalid-request',
      message: 'captureSetup requires one canonical native capture DTO' }],
  ['a key of the wrong type',
    () => addon.captureSetup(monitorRequest({ width: '1' })),
    { name: 'Error', code: 'invalid-request',
      message: 'width must be a number' }],
  ['odd sizes', () => addon.captureSetup(monitorRequest({ width: 321 })),
    { name: 'Error', code: 'invalid-request' }],
  ['a function called with too little', () => addon.setBitrate(),
    { name: 'TypeError', code: 'invalid-argument',
      message: 'setBitrate requires one bitrate number in bits per second' }],
  ['a registration without a function', () => addon.onFragmentReady(),
    { name: 'TypeError', code: 'invalid-argument',
      message: 'onFragmentReady requires a callback' }],
  ['a bitrate without a capture', () => addon.setBitrate(1_000_000),
    { name: 'Error', code: 'no-active-capture' }],
  ['targets without a capture',
    () => addon.updateAudioTargets({ pipeWireTargetObjects: [1] }),
    { name: 'Error', code: 'no-active-capture' }],
  ['a descriptor of a process that is none',
    () => addon.duplicateFdFromPid(2 ** 22 + 1, 0),
    { name: 'Error', code: 'process-unreachable' }],
  ['a hardware encoder for an X11 source',
    () => addon.captureSetup(monitorRequest({
      encoderRequirement: 'hardware', temporalLayerCount: 1 })),
    { name: 'Error', code: 'hardware-unavailable' }],
]) {
  test(`${name}: ${expected.code}`, () => {
    assert.throws(run, expected);
  });
}

test('an error of the request itself is passed on as it is', () => {
  const own = new Error('mine');
  const request = Object.defineProperty({}, 'source', {
    get() { throw own; },
  });
  assert.throws(() => addon.captureSetup(request), (error) => error === own);
  assert.equal(Object.hasOwn(own, 'code'), false);
});

/** What a host throws for the request: its code and its message. */
const codeOf = (host, request) => host.call(({ addon: native }, wanted) => {
  try {
    native.captureSetup(wanted);
    return null;
  } catch ({ code, message }) {
    return { code, message };
  }
}, request);

test('the code of a missing element does not follow the locale', async () => {
  await withoutPlugins(['libgstvideorate.so'], async (plugins) => {
    for (const language of ['en', 'de']) {
      const environment = { ...plugins, LANGUAGE: language, LC_ALL: 'C.UTF-8' };
      await withHost({ display: xvfb.display, environment }, async (host) => {
        const { code } = await codeOf(host, monitorRequest(screen));
        assert.equal(code, 'missing-element');
      });
    }
  });
});

test('what an X11 source lacks is told by its code', async () => {
  await withHost({ display: xvfb.display }, async (host) => {
    assert.deepEqual(await codeOf(host, windowRequest({ handle: 1 })),
      { code: 'window-missing', message: 'X11 window 1 does not exist' });
    assert.equal((await codeOf(host, monitorRequest({ ...screen, x: 400 })))
      .code, 'rectangle-off-screen');
  });
  await withHost({ display: ':64321' }, async (host) => {
    assert.equal((await codeOf(host, monitorRequest(screen))).code,
      'state-change-failed');
  });
});

test('the statistics tell a trouble until it is over', async () => {
  const scene = await startScene({
    display: xvfb.display, width: 160, height: 90, x: 20, y: 20, fps: 30,
  });
  const interruption = (host) => host.call(({ addon }) => {
    const stats = addon.getStats();
    return { code: stats.interruption,
      isListed: Object.keys(stats).includes('interruption') };
  });
  const until = async (host, code) => {
    for (let seen; seen?.code !== code; seen = await interruption(host)) {
      await host.packets(2);
    }
  };
  try {
    await withHost({ display: xvfb.display }, async (host) => {
      const desktop = desktopOf(xvfb.display);
      await host.setup(windowRequest({ handle: scene.window }));
      const none = { code: '', isListed: false };
      for (const time of [1, 2]) {
        assert.deepEqual(await interruption(host), none);
        await desktop.hide(scene.window);
        await host.errorEvents(time);
        await until(host, 'window-hidden');
        await desktop.show(scene.window);
        await until(host, '');
      }
      await desktop.hide(scene.window);
      await until(host, 'window-hidden');
      await host.stop();
      assert.deepEqual(await interruption(host), none);
    });
  } finally {
    await scene.stop();
  }
});

/** Every event of the host as its keys and its code. */
const eventsOf = (host) => host.call(({ collected }) =>
  collected.events.map((event) => ({
    state: event.state,
    code: event.code ?? null,
    keys: Object.keys(event).join(' '),
    isListed: Object.getOwnPropertyDescriptor(event, 'code')?.enumerable ??
      null,
  })));

test('an "error" event has a code beside its four keys', async () => {
  const scene = await startScene({
    display: xvfb.display, width: 160, height: 90, x: 20, y: 20, fps: 30,
  });
  try {
    await withHost({ display: xvfb.display }, async (host) => {
      const desktop = desktopOf(xvfb.display);
      await host.setup(windowRequest({ handle: scene.window }));
      await host.packets(5);
      await desktop.hide(scene.window);
      await host.errorEvents(1);
      await scene.stop();
      await host.errorEvents(2);
      await host.stop();
      const keys = 'state reason width height';
      assert.deepEqual(await eventsOf(host), [
        { state: 'ready', code: null, keys, isListed: null },
        { state: 'error', code: 'window-hidden', keys, isListed: false },
        { state: 'error', code: 'window-closed', keys, isListed: false },
        { state: 'stopped', code: null, keys, isListed: null },
      ]);
    });
  } finally {
    await scene.stop();
  }
});
