import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';
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
import { atoms, startXClient } from '../support/x_client.mjs';
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
    ['applications', 'system', 'inputs', 'monitors', 'windows', 'problems']);
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
        pausedTargetObjects: [],
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

  test('is one monitor where the server knows none', async () => {
    const plain = await startXvfb({ width: 320, height: 200,
      without: ['RANDR'] });
    try {
      const { stdout } = await runTargetsProgram(['--x11'],
        { ...process.env, DISPLAY: plain.display });
      const [monitor, ...others] = JSON.parse(stdout).monitors;
      assert.deepEqual([monitor.name, monitor.isPrimary, others.length],
        ['screen', true, 0]);
      assert.deepEqual(monitor.source.geometry,
        { x: 0, y: 0, width: 320, height: 200 });
    } finally {
      await plain.stop();
    }
  });

  describe('whatever a window tells', () => {
    let client;
    let names;
    before(async () => {
      client = await startXClient(xvfb.display);
      names = {
        title: await client.atom('_NET_WM_NAME'),
        utf8: await client.atom('UTF8_STRING'),
        compound: await client.atom('COMPOUND_TEXT'),
        process: await client.atom('_NET_WM_PID'),
        clients: await client.atom('_NET_CLIENT_LIST'),
      };
    });
    after(() => client?.stop());

    const listOf = async (window) => {
      await client.sync();
      const { stdout } = await runTargetsProgram(['--x11']);
      // Nothing in the line acts on the terminal that it is shown in.
      // eslint-disable-next-line no-control-regex
      assert.doesNotMatch(stdout.slice(0, -1), /[\0-\x1f\x7f-\x9f\u2028-\u202e]/);
      return JSON.parse(stdout).windows
        .find(({ source }) => source.handle === window);
    };
    const titleOf = async (bytes) => {
      const window = client.createWindow();
      client.setProperty(window, names.title, names.utf8, 8, bytes);
      return (await listOf(window)).title;
    };

    test('is what it is', async () => {
      const title = 'a\u001b[2J\u009b\nb\t\u202egnp\u2069"\\\u0000c 😀';
      assert.equal(await titleOf(Buffer.from(title)), title);
    });

    test('is readable where it is not UTF-8', async () => {
      assert.equal(await titleOf(Buffer.from([0x61, 0xff, 0xc3])), 'a��');
      // Without the byte that a real U+FFFD begins with.
      const random = randomBytes(65_536).map((byte) =>
        byte === 0xef ? 0 : byte);
      const title = await titleOf(random);
      // Every byte is either part of a character or one U+FFFD.
      const replaced = title.split('�').length - 1;
      assert.ok(replaced > 0);
      assert.equal(Buffer.from(title.replaceAll('�', '')).length + replaced,
        random.length);
    });

    test('is cut where it is too long', async () => {
      const title = await titleOf(Buffer.alloc(1 << 20, 'x'));
      assert.ok(title.length >= 1 << 16 && /^x*$/.test(title));
    });

    test('may be of the wrong type or size', async () => {
      const window = client.createWindow();
      const bytes = randomBytes(64);
      for (const format of [16, 32]) {
        for (const type of [names.utf8, atoms.STRING, names.compound]) {
          client.setProperty(window, atoms.WM_NAME, type, format, bytes);
          client.setProperty(window, names.title, type, format, bytes);
          client.setProperty(window, atoms.WM_CLASS, type, format, bytes);
          client.setProperty(window, names.process, type, 8, bytes);
          assert.deepEqual(await listOf(window), {
            title: '', className: '', processId: 0,
            geometry: { x: 0, y: 0, width: 16, height: 16 },
            source: { backend: 'x11', kind: 'window', handle: window },
          });
        }
      }
    });

    test('may be an old title of any bytes', async () => {
      const window = client.createWindow();
      client.setProperty(window, atoms.WM_NAME, atoms.STRING, 8,
        Buffer.from('caf\u00e9', 'latin1'));
      assert.equal((await listOf(window)).title, 'caf\u00e9');
      for (const type of [atoms.STRING, names.utf8, names.compound,
        names.process]) {
        for (const bytes of [randomBytes(200), Buffer.alloc(0)]) {
          client.setProperty(window, atoms.WM_NAME, type, 8, bytes);
          client.setProperty(window, atoms.WM_CLASS, type, 8, bytes);
          assert.equal(typeof (await listOf(window)).title, 'string');
        }
      }
    });
  });

  test('tells each window once, however often it is named', async () => {
    const [first] = scenes;
    const client = await startXClient(xvfb.display);
    const list = Buffer.alloc(4 * 20_000);
    for (let at = 0; at < list.length; at += 4) {
      list.writeUInt32LE(first.window, at);
    }
    client.setProperty(client.root, await client.atom('_NET_CLIENT_LIST'), 33,
      32, list);
    await client.sync();
    try {
      assert.deepEqual((await listTargets(['--x11'])).windows
        .map(({ source }) => source.handle), [first.window]);
    } finally {
      await runTool({ options: { env: process.env } }, 'xprop',
        ['-root', '-remove', '_NET_CLIENT_LIST']);
      client.stop();
    }
  });

  test('tells thousands of windows, and does not get lost in deep ones',
    async () => {
      const client = await startXClient(xvfb.display);
      const windows = Array.from({ length: 3_000 },
        () => client.createWindow());
      let parent = windows[0];
      for (let level = 0; level < 3_000; level += 1) {
        parent = client.createWindow({ parent });
      }
      await client.sync();
      try {
        const listed = new Set((await listTargets(['--x11'])).windows
          .map(({ source }) => source.handle));
        assert.deepEqual(windows.filter((id) => !listed.has(id)), []);
      } finally {
        client.stop();
      }
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
  assert.match(help.stdout, /--pipewire[^]*--x11[^]*--follow[^]*--version/);
  assert.match(help.stdout, /^ {2}linux-capture-targets --x11 \| jq /m);
  for (const [args, message] of [
    [['--x12'], 'unknown option "--x12"; is it --x11?'],
    [['--x11=1'], '--x11 takes no value'],
    [['--follow', '--x11'], '--follow is for the sound, not for --x11'],
  ]) {
    assert.deepEqual(await runTargetsProgram(args), {
      status: 2, stdout: '', stderr: `linux-capture-targets: ${message}\n`,
    });
  }
  assert.equal((await runTargetsProgram(['--version'])).stdout,
    'linux-capture-targets 0.1.0\n');
});
