import assert from 'node:assert/strict';
import { closeSync } from 'node:fs';
import { describe, test } from 'node:test';
import { startCapture } from 'linux-capture-addon/session';
import { CaptureSession } from '../../lib/session/capture_session.js';
import { addon } from '../support/addon.mjs';
import { FakeNative } from '../support/fake_native.mjs';
import { colourAt, readNumber } from '../support/picture.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startVideo } from '../support/pipewire_sources.mjs';
import { followsFormats } from '../support/pipewire_version.mjs';
import { startFakePortal } from '../support/portal_program.mjs';
import { startSessionBus } from '../support/session_bus.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

/** A session of a stream that can be opened again, and what it has told. */
function startFake({ sound = null, audioPlan = null } = {}) {
  const native = new FakeNative();
  const opened = [];
  const session = new CaptureSession({
    native,
    source: {
      request: { portal: 'first' },
      reopen: () => ({ portal: 'again' }),
      opened: () => opened.push('opened'),
      description: {}, restoreToken: null, closed: null,
    },
    release: async () => {},
  });
  const told = [];
  session.events.on('error', ({ code, nativeCode, isFatal }) =>
    told.push([code, nativeCode, isFatal]));
  session.events.on('recovered', ({ error }) =>
    told.push(['recovered', error.nativeCode]));
  session.start({ capture: { topology: { branches: [] } }, sound, audioPlan,
    keyframeSeconds: null });
  const change = () => native.sendError('video: another size', 'format-changed');
  return { native, session, told, opened, change };
}

const interrupted = ['ERR_CAPTURE_INTERRUPTED', 'format-changed', false];
const recovered = ['recovered', 'format-changed'];
const begun = (native, count) =>
  until(() => native.requests.length === count && !native.isStopped,
    `capture ${count}`);

describe('a stream that has to be opened anew', () => {
  test('goes on in the same session, with its times and its counts',
    async () => {
      const { native, session, told, opened, change } = startFake();
      const packets = session.video();
      native.sendVideo({ timestampUs: 500_000 });
      assert.equal((await packets.next()).value.timestampUs, 500_000);
      native.originUs = 2_000_000;
      change();
      // Of the old capture, which is told no more.
      native.sendError('video: something', 'pipeline-error');
      assert.deepEqual(told, [interrupted]);
      await begun(native, 2);
      assert.deepEqual(native.requests.map(({ portal }) => portal),
        ['first', 'again']);
      assert.deepEqual(opened, ['opened']);
      native.sendVideo({ timestampUs: 100 });
      native.sendVideo({ timestampUs: 33_000 });
      const { value } = await packets.next();
      assert.deepEqual([value.timestampUs, value.isAfterGap],
        [2_000_100, true]);
      assert.equal((await packets.next()).value.timestampUs, 2_033_000);
      assert.deepEqual(told, [interrupted, recovered]);
      const { video, sync } = session.stats();
      assert.equal(video.branches[0].frames, 3);
      assert.equal(video.branches[0].reader.delivered, 3);
      assert.equal(sync.clockOriginUs, 0);
      assert.equal(session.isActive, true);
      await session.stop();
      assert.equal(session.stats().video.branches[0].frames, 3);
      assert.equal((await session.ended).reason, 'stop');
    });

  test('is opened again each time, and times never go back', async () => {
    const { native, session, told, change } = startFake();
    const packets = session.video();
    // A picture may be stamped ahead of the clock.
    native.sendVideo({ timestampUs: 5_000_000 });
    for (let count = 2; count <= 4; count += 1) {
      native.originUs += 1000;
      change();
      await begun(native, count);
      native.sendVideo({ timestampUs: 1 });
    }
    const times = [];
    for (let i = 0; i < 4; i += 1) {
      times.push((await packets.next()).value.timestampUs);
    }
    assert.deepEqual(times, [5_000_000, 5_000_001, 5_000_002, 5_000_003]);
    assert.deepEqual(told, [interrupted, recovered, interrupted, recovered,
      interrupted, recovered]);
    await session.stop();
  });

  test('may need more than one attempt', async () => {
    const { native, session, told, change } = startFake();
    let refusals = 2;
    native.refuse = () => {
      refusals -= 1;
      return refusals >= 0 ? new Error('it changes again') : undefined;
    };
    change();
    await begun(native, 4);
    native.sendVideo({ timestampUs: 1 });
    assert.deepEqual(told, [interrupted, recovered]);
    await session.stop();
  });

  // KWin may wait for ever after a change that came in the midst of a start.
  test('is opened once more when no picture comes, but not for ever',
    async (t) => {
      const { native, session, told, change } = startFake();
      t.mock.timers.enable({ apis: ['setTimeout'] });
      change();
      let count = 2;
      for (const pauseMs of [1_500, 3_000, 6_000]) {
        await begun(native, count);
        t.mock.timers.tick(pauseMs - 1);
        assert.equal(native.isStopped, false);
        t.mock.timers.tick(1);
        count += 1;
      }
      await begun(native, count);
      t.mock.timers.tick(3_600_000);
      assert.equal(native.isStopped, false);
      assert.deepEqual(told, [interrupted]);
      native.sendVideo({ timestampUs: 1 });
      assert.deepEqual(told, [interrupted, recovered]);
      // With a picture there is nothing to wait for, and the next change has
      // all its attempts again.
      t.mock.timers.tick(3_600_000);
      assert.equal(native.isStopped, false);
      change();
      await begun(native, count + 1);
      t.mock.timers.tick(1_500);
      await begun(native, count + 2);
      await session.stop();
      t.mock.timers.tick(3_600_000);
      assert.equal(native.requests.length, count + 2);
    });

  test('may need many while its source goes on changing', async () => {
    const { native, session, told, change } = startFake();
    let refusals = 5;
    native.refuse = () => {
      refusals -= 1;
      return refusals >= 0
        ? Object.assign(new Error('no format'), { code: 'state-change-failed' })
        : undefined;
    };
    change();
    await begun(native, 7);
    native.sendVideo({ timestampUs: 1 });
    assert.deepEqual(told, [interrupted, recovered]);
    await session.stop();
  });

  test('ends the session when it is refused again and again', async () => {
    const { native, session, told, change } = startFake();
    native.refuse = () => Object.assign(new Error('PipeWire target 7 went away'),
      { code: 'target-missing' });
    change();
    const { reason, error } = await session.ended;
    assert.equal(reason, 'error');
    assert.equal(error.nativeCode, 'target-missing');
    assert.equal(error.message, 'PipeWire target 7 went away');
    assert.equal(told.length, 2);
    assert.equal(native.isStopped, true);
  });

  test('goes on without a sound that has gone, and says so', async () => {
    const linuxAudio = { mode: 'process', pipeWireTargetObjects: [9] };
    const { native, session, told, change } = startFake({
      sound: { linuxAudio, kinds: new Map(), isWaiting: false },
      audioPlan: { mode: 'process', canWait: false,
        find: async () => { throw new Error('nobody plays'); } },
    });
    native.refuse = (request) => request.linuxAudio === undefined ? undefined
      : new Error('PipeWire target 9 does not exist');
    change();
    await begun(native, 3);
    assert.deepEqual(native.requests.map(({ audio }) => audio.mode),
      ['process', 'process', 'none']);
    assert.deepEqual(told,
      [interrupted, ['ERR_CAPTURE_AUDIO', null, false]]);
    assert.equal(session.isActive, true);
    await session.stop();
  });

  test('is not opened again by a session that is stopped meanwhile',
    async () => {
      const { native, session, change } = startFake();
      change();
      await session.stop();
      assert.equal((await session.ended).reason, 'stop');
      assert.equal(native.requests.length, 1);
      assert.equal(native.isStopped, true);
    });
});

describe('a screen cast that changes its size', () => {
  const size = { width: 320, height: 180 };
  let bus;
  const session = usePipeWire({
    async prepare() {
      bus = await startSessionBus();
      process.env.DBUS_SESSION_BUS_ADDRESS = bus.address;
      return [bus];
    },
  });

  /** Captures, changes the size twice, and looks at all pictures. */
  async function checkThatItGoesOn(screen, source, started = () => {}) {
    const capture = await startCapture({ source, video: { fps: 15 } });
    started();
    const told = [];
    capture.events.on('error', ({ nativeCode }) => told.push(nativeCode));
    capture.events.on('recovered', ({ error }) =>
      told.push(`${error.nativeCode} is over`));
    const packets = [];
    const read = (async () => {
      for await (const packet of capture.video()) packets.push(packet);
    })();
    const ends = [];
    try {
      // Wider, and the size of before again.
      for (const other of [null, '400x180', '320x180']) {
        const { length } = told;
        if (other !== null) screen.command(`resize ${other}`);
        if (other !== null && !followsFormats) {
          await until(() => told.length >= length + 2, 'the new size', 20_000);
        }
        const before = packets.length;
        await until(() => packets.length >= before + 20, 'pictures', 20_000);
        ends.push(packets.length - 1);
      }
      const { frames } = capture.stats().video.branches[0];
      // A picture may be under way while an ended capture is asked.
      assert.ok(frames >= packets.length - 2, `${frames} of ${packets.length}`);
    } finally {
      await capture.stop();
      await read;
    }
    assert.equal((await capture.ended).reason, 'stop');
    assert.deepEqual(told, followsFormats ? []
      : ['format-changed', 'format-changed is over',
        'format-changed', 'format-changed is over']);
    packets.forEach(({ timestampUs }, index) => assert.ok(index === 0 ||
      timestampUs > packets[index - 1].timestampUs, `time ${index}`));
    const pictures = await decodeFlawlessly(packets.map((packet) =>
      ({ ...packet, payload: packet.data })));
    const [first, middle, last] = ends.map((index) => pictures[index]);
    assert.ok(readNumber(last) > readNumber(first) + 30);
    // The whole picture of another shape, with bars above and below.
    assert.ok(Math.max(...colourAt(middle, 0.5, 0.03)) < 10);
    assert.ok(Math.max(...colourAt(middle, 0.5, 0.97)) < 10);
    const red = colourAt(middle, 1 / 8, 0.1 + 0.8 * 3 / 8);
    assert.ok(red[0] > 150 && red[1] < 80 && red[2] < 100, String(red));
  }

  test('goes on, from a descriptor that its host has closed', async () => {
    const holder = await startHolder(session);
    const screen = await startVideo(session, { ...size, fps: 15 });
    const fd = addon.duplicateFdFromPid(holder.pid, holder.fd);
    try {
      await checkThatItGoesOn(screen,
        { type: 'pipewire', fd, nodeId: screen.node.id, ...size },
        () => closeSync(fd));
    } finally {
      await screen.stop();
      await holder.stop();
    }
  });

  test('goes on without another question to the portal', async () => {
    const screen = await startVideo(session, { ...size, fps: 15 });
    const portal = await startFakePortal(bus.address, [
      '--remote', session.socket,
      '--streams', `[(uint32 ${screen.node.id}, {'size': <(320, 180)>, ` +
        "'source_type': <uint32 2>})]",
    ]);
    try {
      await checkThatItGoesOn(screen, { type: 'portal' });
      assert.equal(portal.output.text.match(/^call Start/gm).length, 1);
      await portal.waitFor(/^closed .*session/m, 'the session is closed');
    } finally {
      await portal.stop();
      await screen.stop();
    }
  });
});
