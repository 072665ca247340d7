import assert from 'node:assert/strict';
import { once } from 'node:events';
import { readdirSync, readFileSync } from 'node:fs';
import { connect, createServer } from 'node:net';
import path from 'node:path';
import { describe, test } from 'node:test';
import { startNode } from '../support/child.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startPlayer } from '../support/pipewire_sources.mjs';
import {
  followTargets, listTargets, runTargetsProgram, targetsProgram,
} from
  '../support/targets_program.mjs';
import { until } from '../support/until.mjs';
import { startXClient } from '../support/x_client.mjs';
import { startXvfb } from '../support/xvfb.mjs';

let player;
let xvfb;
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    player = await startPlayer(started, { name: 'low', hertz: 440 });
    xvfb = await startXvfb();
    process.env.DISPLAY = xvfb.display;
    return [player, xvfb];
  },
});

const noX11Answer = () => [{
  part: 'x11',
  message: `the X display "${xvfb.display}" does not answer ` +
    '(waited 5 seconds)',
}];
const noPipeWireAnswer = [{
  part: 'pipewire',
  message: 'the PipeWire daemon does not answer (waited 5 seconds)',
}];

/** Stops the process while `use` runs. */
async function whileStopped(server, use) {
  server.kill('SIGSTOP');
  try {
    return await use();
  } finally {
    server.kill('SIGCONT');
  }
}

const playing = ({ applications }) =>
  applications?.map(({ processId }) => processId);
const hasPlayer = (list) => playing(list)?.includes(player.child.pid);

describe('a list ends by itself', () => {
  test('where the X server stands still', async () => {
    xvfb.pause();
    try {
      const list = await listTargets();
      assert.deepEqual([list.monitors, list.windows], [null, null]);
      assert.deepEqual(list.problems, noX11Answer());
      assert.ok(hasPlayer(list));
    } finally {
      xvfb.resume();
    }
    const { monitors, problems } = await listTargets();
    assert.deepEqual([monitors.length, problems], [1, []]);
  });

  test('where another client has grabbed the X server', async () => {
    const client = await startXClient(xvfb.display);
    client.grab();
    await client.sync();
    try {
      assert.deepEqual((await listTargets(['--x11'])).problems, noX11Answer());
    } finally {
      client.stop();
    }
    assert.deepEqual((await listTargets(['--x11'])).problems, []);
  });

  test('where the PipeWire daemon stands still', () =>
    whileStopped(session.daemon.child, async () => {
      const list = await listTargets();
      assert.deepEqual([list.applications, list.system, list.inputs],
        [null, null, null]);
      assert.deepEqual(list.problems, noPipeWireAnswer);
      assert.equal(list.monitors.length, 1);
    }));

  test('where both stand still', async () => {
    xvfb.pause();
    try {
      await whileStopped(session.daemon.child, async () => {
        assert.deepEqual((await listTargets()).problems,
          [...noPipeWireAnswer, ...noX11Answer()]);
      });
    } finally {
      xvfb.resume();
    }
  });

  test('where an X server breaks off while the display is opened',
    async () => {
      // Passes on what a real server says, up to the middle of its answers.
      for (const bytes of [4, 500, 2_000]) {
        const server = createServer((socket) => {
          const real = connect(`/tmp/.X11-unix/X${xvfb.display.slice(1)}`);
          let left = bytes;
          real.on('data', (data) => {
            socket.write(data.subarray(0, left));
            left -= data.length;
            if (left <= 0) socket.end(() => real.destroy());
          });
          socket.on('error', () => {}).pipe(real).on('error', () => {});
          socket.on('close', () => real.destroy());
        });
        await once(server.listen(0, '127.0.0.1'), 'listening');
        const display = `127.0.0.1:${server.address().port - 6000}`;
        const list = await listTargets([],
          { ...process.env, DISPLAY: display });
        server.close();
        assert.equal(list.windows, null);
        assert.match(list.problems[0].message,
          /^the X display "127\.0\.0\.1:\d+" (went away|cannot be reached)$/);
        assert.ok(hasPlayer(list));
      }
    });

  test('where the X server sends answers that are none', async () => {
    const server = createServer((socket) => {
      const real = connect(`/tmp/.X11-unix/X${xvfb.display.slice(1)}`);
      const [isReply, isLongEvent] = [1, 35];
      let isOpen = false;
      let rest = Buffer.alloc(0);
      real.on('data', (data) => {
        rest = Buffer.concat([rest, data]);
        for (;;) {
          if (rest.length < (isOpen ? 32 : 8)) return;
          let length = isOpen ? 32 : 8 + 4 * rest.readUInt16LE(6);
          if (isOpen && [isReply, isLongEvent].includes(rest[0])) {
            length += 4 * rest.readUInt32LE(4);
          }
          if (rest.length < length) return;
          // Of a property, how long its value is.
          if (isOpen && rest[0] === isReply) rest.writeInt32LE(0x7fffffff, 16);
          socket.write(rest.subarray(0, length));
          rest = rest.subarray(length);
          isOpen = true;
        }
      });
      socket.on('error', () => {}).pipe(real).on('error', () => {});
      socket.on('close', () => real.destroy());
    });
    await once(server.listen(0, '127.0.0.1'), 'listening');
    const display = `127.0.0.1:${server.address().port - 6000}`;
    const { status, stdout, stderr } = await runTargetsProgram([],
      { ...process.env, DISPLAY: display });
    server.close();
    assert.equal(status, 0, stderr);
    const list = JSON.parse(stdout);
    assert.deepEqual([list.monitors, list.windows], [null, null]);
    assert.deepEqual(list.problems, [{
      part: 'x11',
      message: `the X display "${display}" sends answers that Xlib cannot read`,
    }]);
    assert.ok(hasPlayer(list));
  });

  test('where the X server dies while it is asked', async () => {
    const dying = await startXvfb();
    const client = await startXClient(dying.display);
    for (let i = 0; i < 2_000; i += 1) client.createWindow();
    await client.sync();
    dying.pause();
    const listed = listTargets(['--x11'],
      { ...process.env, DISPLAY: dying.display });
    await dying.kill();
    const { windows, problems } = await listed;
    assert.equal(windows, null);
    assert.match(problems[0].message,
      /^the X display ":\d+" (went away|cannot be reached)$/);
    client.stop();
  });
});

describe('a host that is killed takes the program with it', () => {
  const isThere = (pid) => {
    try {
      return !/^State:\s+Z/m.test(
        readFileSync(`/proc/${pid}/status`, 'utf8'));
    } catch {
      return false;
    }
  };

  /** Starts the program in a host of its own. */
  async function startInHost(args, output = null) {
    const host = startNode(`
      import { spawn } from 'node:child_process';
      import { openSync } from 'node:fs';
      const output = ${JSON.stringify(output)};
      const child = spawn(${JSON.stringify(targetsProgram)},
        ${JSON.stringify(args)}, { stdio: ['pipe',
          output === null ? 'pipe' : openSync(output, 'w'), 'ignore'] });
      console.log('pid=' + child.pid);
      child.stdout?.once('data', () => console.log('told'));
    `, { display: process.env.DISPLAY });
    const [, pid] = await until(() => /^pid=(\d+)\n/.exec(host.stdout.text),
      'the program to start');
    return { host, pid: Number(pid) };
  }

  async function killHost(host) {
    host.child.kill('SIGKILL');
    await host.end(20_000);
  }

  test('while it waits for an answer', async () => {
    xvfb.pause();
    try {
      // What outlives the host, so that a list would be seen.
      const output = path.join(session.root, 'list');
      const { host, pid } = await startInHost(['--x11'], output);
      // The second thread is there when the program has begun its list. Stopped
      // while its host goes, it cannot come to the end of its patience first.
      await until(() => readdirSync(`/proc/${pid}/task`).length > 1,
        'the list to begin');
      process.kill(pid, 'SIGSTOP');
      await killHost(host);
      process.kill(pid, 'SIGCONT');
      await until(() => !isThere(pid), 'the program to end');
      assert.equal(readFileSync(output, 'utf8'), '');
    } finally {
      xvfb.resume();
    }
  });

  test('while it listens', async () => {
    const { host, pid } = await startInHost(['--follow']);
    await until(() => /told/.test(host.stdout.text), 'the first list');
    assert.ok(isThere(pid));
    await killHost(host);
    await until(() => !isThere(pid), 'the program to end');
  });

  test('while it waits for a daemon that stands still', () =>
    whileStopped(session.daemon.child, async () => {
      const { host, pid } = await startInHost(['--follow']);
      await until(() => readdirSync(`/proc/${pid}/fd`).length > 4,
        'the connection');
      await killHost(host);
      await until(() => !isThere(pid), 'the program to end');
    }));
});

describe('listening', () => {
  const useFollower = async (use, env) => {
    const follower = followTargets(env);
    try {
      return await use(follower);
    } finally {
      await follower.stop();
    }
  };
  const playNow = (name, properties = '') =>
    startPlayer(session, { name, hertz: 700, properties });

  test('begins with the list as it is', () => useFollower(
    async (follower) => {
      const list = await follower.waitFor(hasPlayer, 'the first list');
      assert.deepEqual(list, await listTargets(['--pipewire']));
    }));

  test('tells of a stream that begins and that ends', () => useFollower(
    async (follower) => {
      await follower.waitFor(hasPlayer, 'the first list');
      const other = await playNow('other');
      const isThere = (list) => playing(list).includes(other.child.pid);
      const list = await follower.waitFor(isThere, 'the other stream');
      assert.deepEqual(list.applications.find(
        ({ processId }) => processId === other.child.pid).linuxAudio
        .pipeWireTargetObjects, [other.serial]);
      await other.kill();
      await follower.waitFor((last) => !isThere(last), 'its end');
      assert.deepEqual(follower.lists().at(-1),
        await listTargets(['--pipewire']));
    }));

  test('says nothing while nothing changes', () => useFollower(
    async (follower) => {
      await follower.waitFor(hasPlayer, 'the first list');
      // Clients that come and go, and do not play.
      for (let round = 0; round < 5; round += 1) {
        await listTargets(['--pipewire']);
      }
      const other = await playNow('other');
      await follower.waitFor(
        (list) => playing(list).includes(other.child.pid), 'the other stream');
      await other.stop();
      const lines = follower.lists().map((list) => JSON.stringify(list));
      lines.forEach((line, i) => assert.notEqual(line, lines[i - 1]));
      // Before the change there was the first list alone.
      assert.deepEqual(playing(follower.lists()[0]),
        playing(await listTargets(['--pipewire'])));
    }));

  test('keeps a stream that is paused and goes on', () => useFollower(
    async (follower) => {
      const other = await playNow('paused');
      const isThere = (list) => playing(list).includes(other.child.pid);
      await follower.waitFor(isThere, 'the stream');
      await whileStopped(other.child, () => listTargets(['--pipewire']));
      const last = await playNow('last');
      const list = await follower.waitFor(
        (now) => playing(now).includes(last.child.pid), 'another stream');
      assert.ok(isThere(list));
      assert.equal(list.applications.find(
        ({ processId }) => processId === other.child.pid).applicationName,
      'pw-play');
      await last.stop();
      await other.stop();
    }));

  test('is the same for two listeners', () => useFollower((one) =>
    useFollower(async (two) => {
      await one.waitFor(hasPlayer, 'the first list');
      await two.waitFor(hasPlayer, 'the first list');
      const other = await playNow('other');
      const isThere = (list) => playing(list).includes(other.child.pid);
      // One that begins is linked a moment before it runs.
      const isRunning = (list) => list.applications.find(({ processId }) =>
        processId === other.child.pid)?.pausedTargetObjects.length === 0;
      assert.deepEqual(await one.waitFor(isRunning, 'the other stream'),
        await two.waitFor(isRunning, 'the other stream'));
      one.close();
      assert.equal((await one.end()).status, 0);
      await other.stop();
      await two.waitFor((list) => !isThere(list), 'its end');
    })));

  test('ends when its input is closed', async () => {
    const follower = followTargets();
    await follower.waitFor(hasPlayer, 'the first list');
    follower.close();
    assert.deepEqual(await follower.end(),
      { status: 0, signal: null, stderr: '' });
  });

  test('ends when nobody reads any more', async () => {
    const follower = followTargets();
    await follower.waitFor(hasPlayer, 'the first list');
    follower.child.stdout.destroy();
    const other = await playNow('other');
    assert.deepEqual(await follower.end(),
      { status: 0, signal: null, stderr: '' });
    await other.stop();
  });

  test('writes to nobody in the place of a missing output', async () => {
    const host = startNode(`
      import { spawnSync } from 'node:child_process';
      for (const option of ['', '--follow']) {
        const { status } = spawnSync('sh', ['-c',
          ${JSON.stringify(`exec ${targetsProgram}`)} + ' $0 2>&- >&-', option],
          { stdio: ['pipe', 'inherit', 'inherit'] });
        console.log(status);
      }
    `, { display: process.env.DISPLAY });
    assert.equal((await host.end(20_000)).stdout, '1\n0\n');
  });

  test('ends without an input', async () => {
    const host = startNode(`
      import { spawnSync } from 'node:child_process';
      const { status, stdout } = spawnSync('sh', ['-c',
        ${JSON.stringify(`exec ${targetsProgram} --follow 0<&-`)}]);
      console.log(status, stdout.length);
    `);
    assert.equal((await host.end(20_000)).stdout, '0 0\n');
  });

  test('tells that a daemon stands still, and goes on with it', async () => {
    await whileStopped(session.daemon.child, () => useFollower(
      async (follower) => {
        const list = await follower.waitFor(() => true, 'the problem');
        assert.equal(list.applications, null);
        assert.deepEqual(list.problems, noPipeWireAnswer);
        session.daemon.child.kill('SIGCONT');
        await follower.waitFor(hasPlayer, 'the list');
      }));
  });
});

describe('a daemon that dies', () => {
  test('is told, and so is the next one', async () => {
    const follower = followTargets();
    await follower.waitFor(hasPlayer, 'the first list');
    await session.killDaemon();
    const { applications, problems } = await follower.waitFor(
      (list) => list.problems.length > 0, 'the problem');
    assert.equal(applications, null);
    assert.deepEqual(problems.map(({ part }) => part), ['pipewire']);
    assert.match(problems[0].message, /^the PipeWire daemon (went away|cannot)/);
    await session.killManager();
    await session.startDaemon();
    const { system } = await follower.waitFor(
      (list) => list.problems.length === 0, 'the next daemon');
    assert.deepEqual(system, []);
    follower.close();
    assert.deepEqual(await follower.end(),
      { status: 0, signal: null, stderr: '' });
  });
});
