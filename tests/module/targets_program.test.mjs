import assert from 'node:assert/strict';
import path from 'node:path';
import { describe, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect, runCapture } from '../support/capture.mjs';
import { readNumber } from '../support/picture.mjs';
import { addSink } from '../support/pipewire.mjs';
import { runTool } from '../support/pipewire_objects.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startPlayer } from '../support/pipewire_sources.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { startScene } from '../support/scene.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { amplitudeOf, leftChannel } from '../support/spectrum.mjs';
import { listTargets, runTargetsProgram } from
  '../support/targets_program.mjs';
import { until } from '../support/until.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const size = { width: 320, height: 180 };
const places = [{ x: 0, y: 0 }, { x: 400, y: 200 }];
let low;
let high;
let xvfb;
const scenes = [];
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    low = await startPlayer(started, { name: 'low', hertz: 440 });
    high = await startPlayer(started, { name: 'high', hertz: 1_000 });
    xvfb = await startXvfb({ width: 800, height: 480 });
    process.env.DISPLAY = xvfb.display;
    for (const place of places) {
      scenes.push(await startScene(
        { display: xvfb.display, ...size, ...place }));
    }
    return [low, high, ...scenes, xvfb];
  },
});

const without = (...names) => Object.fromEntries(
  Object.entries(process.env).filter(([name]) => !names.includes(name)));

test('everything is listed in one line, in one order', async () => {
  const { stdout } = await runTargetsProgram();
  assert.match(stdout, /^\{.*\}\n$/);
  const targets = JSON.parse(stdout);
  assert.deepEqual(Object.keys(targets),
    ['applications', 'system', 'monitors', 'windows', 'problems']);
  assert.deepEqual(targets.problems, []);
});

describe('applications', () => {
  const applicationOf = async ({ child }) =>
    (await listTargets()).applications
      .find(({ processId }) => processId === child.pid);

  test('each process that plays is listed with all that is known',
    async () => {
      const { applications } = await listTargets();
      assert.deepEqual(applications.map(({ processId }) => processId),
        [low.child.pid, high.child.pid]);
      const [{ linuxAudio, ...application }] = applications;
      assert.deepEqual(application, {
        processId: low.child.pid,
        processBinary: 'pw-cat',
        applicationName: 'pw-play',
      });
      assert.deepEqual(Object.entries(linuxAudio), Object.entries({
        mode: 'process',
        pipeWireTargetObjects: [low.serial],
        pipeWireAudioSources: [{
          pipeWireTargetObject: low.serial,
          pipeWireNodeId: low.node.id,
          pipeWireObjectSerial: low.serial,
          processId: low.child.pid,
          applicationName: 'pw-play',
          processBinary: 'pw-cat',
          nodeName: 'low',
          mediaName: path.join(session.root, 'low.wav'),
          targetObject: String(low.serial),
        }],
      }));
    });

  test('one of them can be captured, and moved to another', async () => {
    const collected = collect();
    const hears = (wanted, other) => () => {
      const last = collected.audio.slice(-20);
      if (last.length < 20) return false;
      const samples = leftChannel(last);
      return amplitudeOf(samples, wanted) > 0.05 &&
        amplitudeOf(samples, other) < 0.01;
    };
    addon.captureSetup({
      ...monitorRequest({ sourceWidth: 320, sourceHeight: 180 }),
      audio: { mode: 'process' },
      linuxAudio: (await applicationOf(low)).linuxAudio,
    });
    try {
      await until(hears(440, 1_000), 'the low tone');
      addon.updateAudioTargets((await applicationOf(high)).linuxAudio);
      await until(hears(1_000, 440), 'the high tone');
      const [source] = addon.getStats().audioSourceStats;
      assert.deepEqual([source.processId, source.nodeName],
        [high.child.pid, 'high']);
    } finally {
      addon.stopCapture();
    }
  });

  test('all streams of one process are together', async () => {
    // What a browser with two sounding pages looks like.
    const more = await startPlayer(session, {
      name: 'more', hertz: 700,
      properties: `application.process.id=${low.child.pid}`,
    });
    try {
      const { linuxAudio } = await applicationOf(low);
      assert.deepEqual(linuxAudio.pipeWireTargetObjects,
        [low.serial, more.serial]);
      assert.deepEqual(
        linuxAudio.pipeWireAudioSources.map(({ nodeName }) => nodeName),
        ['low', 'more']);
      assert.equal((await listTargets()).applications.length, 2);
    } finally {
      await more.stop();
    }
  });

  test('one that has ended is not listed', async () => {
    const third = await startPlayer(session, { name: 'third', hertz: 600 });
    assert.ok(await applicationOf(third));
    await third.kill();
    await until(async () => await applicationOf(third) === undefined,
      'the ended player to go');
  });
});

describe('the system', () => {
  test('is its sinks, of which one is the default', async () => {
    const { system } = await listTargets();
    assert.deepEqual(system, [{
      linuxAudio: {
        mode: 'system', pipeWireTargetObjects: [session.sink.serial],
      },
      name: 'null1',
      description: system[0].description,
      isDefault: true,
    }]);
    const other = await addSink(session, 'null2');
    const both = (await listTargets()).system;
    assert.deepEqual(
      both.map(({ linuxAudio }) => linuxAudio.pipeWireTargetObjects),
      [[session.sink.serial], [other.serial]]);
    assert.deepEqual(both.filter(({ isDefault }) => isDefault).length, 1);
  });

  test('its mix can be captured', async () => {
    const [{ linuxAudio }] = (await listTargets()).system;
    const collected = collect();
    addon.captureSetup({
      ...monitorRequest({ sourceWidth: 320, sourceHeight: 180 }),
      audio: { mode: 'system' },
      linuxAudio,
    });
    try {
      await until(() => {
        const samples = leftChannel(collected.audio.slice(-20));
        return collected.audio.length > 20 &&
          amplitudeOf(samples, 440) > 0.05 &&
          amplitudeOf(samples, 1_000) > 0.05;
      }, 'both tones');
    } finally {
      addon.stopCapture();
    }
  });
});

describe('the X display', () => {
  test('has one monitor here, which can be captured', async () => {
    const { monitors } = await listTargets();
    assert.deepEqual(monitors.map(({ source }) => source), [{
      backend: 'x11',
      kind: 'monitor',
      handle: null,
      geometry: { x: 0, y: 0, width: 800, height: 480 },
    }]);
    assert.equal(typeof monitors[0].name, 'string');
    assert.equal(typeof monitors[0].isPrimary, 'boolean');
    const { packets } = await runCapture(
      { ...monitorRequest(), source: monitors[0].source },
      { seconds: 0.5, branchCount: 1 });
    assert.ok(packets.length > 5);
  });

  test('has windows with their places, which can be captured', async () => {
    const { windows } = await listTargets();
    const found = scenes.map(({ window }) =>
      windows.find(({ source }) => source.handle === window));
    assert.deepEqual(found.map(({ geometry }) => geometry),
      places.map((place) => ({ ...place, ...size })));
    const { packets } = await runCapture(
      { ...monitorRequest(size), source: found[1].source },
      { seconds: 0.5, branchCount: 1 });
    const numbers = (await decodeFlawlessly(packets)).map(readNumber);
    assert.ok(numbers.filter((number) => number !== null).length > 5,
      numbers.join(' '));
  });

  const windowOf = async ({ window }) => (await listTargets(['--x11'])).windows
    .find(({ source }) => source.handle === window);
  const setProperty = (window, format, name, value) => runTool(
    { options: { env: process.env } }, 'xprop',
    [...window === null ? ['-root'] : ['-id', String(window)],
      '-f', name, format, '-set', name, value]);

  test('tells what a window tells of itself', async () => {
    const [scene] = scenes;
    const { title, className, processId } = await windowOf(scene);
    assert.deepEqual([title, className, processId], ['', '', 0]);
    await setProperty(scene.window, '8s', 'WM_NAME', 'an old title');
    await setProperty(scene.window, '8s', 'WM_CLASS', 'scene');
    await setProperty(scene.window, '32c', '_NET_WM_PID', '4711');
    const old = await windowOf(scene);
    assert.deepEqual([old.title, old.className, old.processId],
      ['an old title', '', 4711]);
    await setProperty(scene.window, '8u', '_NET_WM_NAME', 'Ünï "c\\o" – 日本');
    assert.equal((await windowOf(scene)).title, 'Ünï "c\\o" – 日本');
  });

  test('finds a window inside the frame of a window manager', async () => {
    const place = { x: 40, y: 260, width: 200, height: 100 };
    const scene = await startScene(
      { display: xvfb.display, ...place, isFramed: true });
    try {
      const { windows } = await listTargets(['--x11']);
      assert.equal(windows.length, scenes.length + 1);
      assert.deepEqual((await windowOf(scene)).geometry, place);
    } finally {
      await scene.stop();
    }
  });

  test('takes the list of a window manager where there is one', async () => {
    const [first, second] = scenes;
    // The last of them does not exist any more.
    await setProperty(null, '32x', '_NET_CLIENT_LIST',
      `${second.window}, 0x7ffffff`);
    try {
      assert.deepEqual((await listTargets(['--x11'])).windows
        .map(({ source }) => source.handle), [second.window]);
      assert.equal(await windowOf(first), undefined);
    } finally {
      await runTool({ options: { env: process.env } }, 'xprop',
        ['-root', '-remove', '_NET_CLIENT_LIST']);
    }
    assert.ok(await windowOf(first));
  });

  test('has no window that was closed', async () => {
    const scene = await startScene({ display: xvfb.display, ...size });
    const isListed = async () => (await listTargets(['--x11'])).windows
      .some(({ source }) => source.handle === scene.window);
    assert.ok(await isListed());
    scene.closeWindow();
    await until(async () => !await isListed(), 'the closed window to go');
    await scene.stop();
  });

  test('is listed well while windows come and go', async () => {
    let isOver = false;
    const comeAndGo = (async () => {
      while (!isOver) {
        const scene = await startScene(
          { display: xvfb.display, width: 64, height: 64 });
        await scene.stop();
      }
    })();
    try {
      for (let round = 0; round < 40; round += 1) {
        const { windows } = await listTargets(['--x11']);
        assert.ok(windows.length >= scenes.length);
      }
    } finally {
      isOver = true;
      await comeAndGo;
    }
  });
});

describe('a part', () => {
  test('that was not asked for is null without a problem', async () => {
    const x11 = await listTargets(['--x11'], without('XDG_RUNTIME_DIR'));
    assert.deepEqual([x11.applications, x11.system, x11.problems],
      [null, null, []]);
    assert.ok(x11.windows.length > 0);
    const pipeWire = await listTargets(['--pipewire'], without('DISPLAY'));
    assert.deepEqual([pipeWire.monitors, pipeWire.windows, pipeWire.problems],
      [null, null, []]);
    assert.ok(pipeWire.applications.length > 0);
  });

  test('is null with the reason when there is no display', async () => {
    const { monitors, windows, applications, problems } =
      await listTargets([], without('DISPLAY'));
    assert.deepEqual([monitors, windows], [null, null]);
    assert.ok(applications.length > 0);
    assert.deepEqual(problems,
      [{ part: 'x11', message: 'no X display: DISPLAY is not set' }]);
    const wrong = await listTargets(['--x11'],
      { ...process.env, DISPLAY: ':987' });
    assert.equal(wrong.problems[0].message,
      'the X display ":987" cannot be reached');
  });

  test('is null with the reason when there is no PipeWire', async () => {
    const { applications, system, windows, problems } = await listTargets([],
      { ...process.env, PIPEWIRE_RUNTIME_DIR: '/nowhere',
        XDG_RUNTIME_DIR: '/nowhere' });
    assert.deepEqual([applications, system], [null, null]);
    assert.ok(windows.length > 0);
    assert.deepEqual(problems.map(({ part }) => part), ['pipewire']);
    assert.match(problems[0].message,
      /^the PipeWire daemon cannot be reached: /);
  });
});

test('an unknown option is refused, the known ones are told', async () => {
  assert.deepEqual(await runTargetsProgram(['--wayland']), {
    status: 2,
    stdout: '',
    stderr: 'linux-capture-targets: unknown option "--wayland"; ' +
      '--help lists all of them\n',
  });
  const help = await runTargetsProgram(['--help']);
  assert.equal(help.status, 0);
  assert.match(help.stdout, /--pipewire[^]*--x11[^]*--version/);
  assert.equal((await runTargetsProgram(['--version'])).stdout,
    'linux-capture-targets 0.1.0\n');
});
