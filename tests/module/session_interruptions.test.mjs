import assert from 'node:assert/strict';
import { once } from 'node:events';
import { afterEach, describe, test } from 'node:test';
import { startCapture } from 'linux-capture-addon/session';
import { AudioPlan } from '../../lib/session/audio_plan.js';
import { CaptureSession } from '../../lib/session/capture_session.js';
import { useDisplay } from '../support/display.mjs';
import { FakeNative } from '../support/fake_native.mjs';
import { startScene } from '../support/scene.mjs';
import { desktopOf } from '../support/x_tools.mjs';

const context = useDisplay();

const linuxAudio = { mode: 'system', pipeWireTargetObjects: [1] };

/** A session with sound, its module, and what it has told. */
function startFake() {
  const native = new FakeNative();
  const session = new CaptureSession({
    native,
    source: { description: {}, restoreToken: null, closed: null },
    release: async () => {},
  });
  session.start({
    capture: { topology: { branches: [] } },
    request: {},
    audioPlan: new AudioPlan({ sources: [], linuxAudio, isFollowed: false }),
    sound: { linuxAudio, kinds: new Map(), isWaiting: false },
    keyframeSeconds: null,
  });
  const told = [];
  session.events.on('error', ({ code, nativeCode, isFatal }) =>
    told.push({ code, nativeCode, isFatal }));
  session.events.on('recovered', ({ error, message }) =>
    told.push({ recovered: error.nativeCode, message }));
  return { native, session, told };
}

describe('an event that a capture lives through', () => {
  let session;
  let native;
  let told;
  afterEach(() => session?.stop());

  const stalls = [
    ['display-stalled', 'video', 'the X server answers again'],
    ['source-stalled', 'video', 'the source goes on'],
    ['sound-server-stalled', 'audio', 'the sound server answers again'],
  ];
  for (const [code, kind, message] of stalls) {
    test(`${code} is over when packets of its kind come`, () => {
      ({ session, native, told } = startFake());
      const [own, other] = kind === 'video'
        ? [() => native.sendVideo(), () => native.sendAudio()]
        : [() => native.sendAudio(), () => native.sendVideo()];
      own();
      native.sendError(`${kind}: whatever`, code);
      other();
      // Told once more meanwhile is not told twice.
      native.sendError(`${kind}: whatever`, code);
      const error =
        { code: 'ERR_CAPTURE_INTERRUPTED', nativeCode: code, isFatal: false };
      assert.deepEqual(told, [error]);
      own();
      own();
      assert.deepEqual(told, [error, { recovered: code, message }]);
      native.sendError(`${kind}: whatever`, code);
      assert.equal(told.length, 3);
      assert.equal(session.isActive, true);
    });
  }

  for (const code of ['window-hidden', 'rectangle-off-screen']) {
    test(`${code} is over when the statistics say so`, async () => {
      ({ session, native, told } = startFake());
      native.interruption = code;
      native.sendError('video: whatever', code);
      for (let i = 0; i < 5; i += 1) native.sendVideo();
      assert.equal(told.length, 1);
      native.interruption = '';
      const [{ error }] = await once(session.events, 'recovered');
      assert.equal(error.nativeCode, code);
      assert.equal(error.isFatal, false);
      assert.equal(native.isStopped, false);
    });
  }

  test('may be any that the sound meets', () => {
    ({ session, native, told } = startFake());
    native.sendError('audio: whatever', 'connection-lost');
    assert.deepEqual(told, [{ code: 'ERR_CAPTURE_AUDIO',
      nativeCode: 'connection-lost', isFatal: false }]);
    assert.equal(session.isActive, true);
  });

  const fatal = ['connection-lost', 'display-lost', 'encoder-failed',
    'format-changed', 'pipeline-error', 'source-lost', 'window-closed',
    undefined];
  for (const code of fatal) {
    test(`is not ${code ?? 'one without a code'}, of the picture`,
      async () => {
        ({ session, native, told } = startFake());
        native.sendError('video: the window is hidden or stalled', code);
        const { reason, error } = await session.ended;
        assert.equal(reason, 'error');
        assert.equal(error.code, 'ERR_CAPTURE_VIDEO');
        assert.equal(error.nativeCode, code ?? 'pipeline-error');
        assert.equal(error.isFatal, true);
        assert.equal(native.isStopped, true);
      });
  }
});

test('a window that is hidden and shown again is captured on', async () => {
  const scene = await startScene({
    display: context.display, width: 160, height: 90, x: 20, y: 20, fps: 30,
  });
  const desktop = desktopOf(context.display);
  const capture = await startCapture({
    source: { type: 'window', id: scene.window }, video: { fps: 10 },
  });
  try {
    for (let round = 0; round < 2; round += 1) {
      const hidden = once(capture.events, 'error');
      await desktop.hide(scene.window);
      const [error] = await hidden;
      assert.equal(error.code, 'ERR_CAPTURE_INTERRUPTED');
      assert.equal(error.nativeCode, 'window-hidden');
      const shown = once(capture.events, 'recovered');
      await desktop.show(scene.window);
      assert.equal((await shown)[0].error, error);
    }
    assert.equal(capture.isActive, true);
  } finally {
    await capture.stop();
    await scene.stop();
  }
});
