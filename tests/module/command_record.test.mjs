import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { existsSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';
import { probeFile, runCommand, startCommand } from '../support/command.mjs';
import { useDisplay } from '../support/display.mjs';
import { endHelper, hasEnded } from '../support/processes.mjs';
import { startScene } from '../support/scene.mjs';
import { useFolder } from '../support/temporary_folder.mjs';
import { until } from '../support/until.mjs';
import { desktopOf } from '../support/x_tools.mjs';

const context = useDisplay();

const folder = useFolder();

const inFolder = (name) => path.join(folder, name);
const small = ['--monitor', '--size', '320x180', '--bitrate', '500k'];

function checkPicture({ video, audio, complaints }) {
  assert.equal(complaints, '');
  assert.equal(video.length, 1);
  assert.equal(audio.length, 0);
  const { codec_name: codec, width, height, color_range: range } = video[0];
  assert.deepEqual({ codec, width, height, range },
    { codec: 'h264', width: 320, height: 180, range: 'pc' });
}

for (const ending of ['mp4', 'mkv']) {
  describe(`a recording into .${ending}`, () => {
    test('has the duration that was asked for', async () => {
      const file = inFolder(`whole.${ending}`);
      const { status, stdout, stderr } =
        await runCommand(['record', file, ...small, '--duration', '3']);
      assert.equal(stderr, '');
      assert.equal(status, 0);
      assert.match(stdout,
        /^Recording monitor \S+, 320x180 at 30 fps into \S+\n/);
      const probed = await probeFile(file);
      checkPicture(probed);
      assert.ok(Math.abs(probed.seconds - 3) < 0.1, `${probed.seconds} s`);
      assert.ok(Math.abs(probed.video[0].nb_read_packets - 90) <= 2);
    });

    for (const signal of ['SIGINT', 'SIGTERM']) {
      test(`is complete after ${signal}`, async () => {
        const file = inFolder(`${signal}.${ending}`);
        const command = startCommand(['record', file, ...small]);
        await command.waitFor(/^Recording/m, 'the recording runs');
        await until(() => existsSync(file), 'the file');
        await command.waitForProgress();
        command.child.kill(signal);
        const { status, stderr } = await command.end();
        assert.equal(stderr, '');
        assert.equal(status, 0);
        const probed = await probeFile(file);
        checkPicture(probed);
        assert.ok(probed.seconds > 4, `${probed.seconds} s`);
      });
    }

    test('plays up to the last seconds when it was killed', async () => {
      const file = inFolder(`killed.${ending}`);
      const command = startCommand(['record', file, ...small]);
      await command.waitForProgress();
      process.kill(command.innerPid(), 'SIGKILL');
      const { status, stderr } = await command.end();
      assert.equal(status, 1);
      assert.match(stderr, /ended by SIGKILL/);
      const probed = await probeFile(file);
      checkPicture(probed);
      assert.ok(probed.video[0].nb_read_packets >= 60,
        `${probed.video[0].nb_read_packets} pictures of five seconds`);
    });
  });
}

test('a recording is completed when only its command is killed', async () => {
  const file = inFolder('orphan.mp4');
  const command = startCommand(['record', file, ...small]);
  await command.waitForProgress();
  const pid = command.innerPid();
  await endHelper(command.child, 'SIGKILL');
  await until(() => {
    try {
      process.kill(pid, 0);
      return false;
    } catch {
      return true;
    }
  }, 'the capturing process to end');
  assert.equal(hasEnded(command.child), true);
  const probed = await probeFile(file);
  checkPicture(probed);
  assert.ok(probed.seconds > 4, `${probed.seconds} s`);
});

test('of two recordings into one file one has it, and the other says so',
  async () => {
    const file = inFolder('contested.mp4');
    const both = await Promise.all([0, 1].map(() =>
      startCommand(['record', file, ...small, '--duration', '2']).end()));
    assert.deepEqual(both.map(({ status }) => status).sort(), [0, 1]);
    assert.match(both.find(({ status }) => status === 1).stderr,
      /contested\.mp4 exists already; --overwrite replaces it/);
    checkPicture(await probeFile(file));
  });

describe('a recording that cannot begin says why', () => {
  test('a file that exists is kept', async () => {
    const file = inFolder('precious.mp4');
    writeFileSync(file, 'precious');
    const { status, stderr } =
      await runCommand(['record', file, ...small, '--duration', '1']);
    assert.equal(status, 1);
    assert.match(stderr, /precious\.mp4 exists already; --overwrite/);
    assert.equal((await runCommand(['record', file, ...small, '--duration',
      '1', '--overwrite'])).status, 0);
    checkPicture(await probeFile(file));
  });

  test('a folder that is not there', async () => {
    const { status, stderr } =
      await runCommand(['record', inFolder('no/such.mp4'), ...small]);
    assert.equal(status, 1);
    assert.match(stderr, /: the folder \S+ does not exist \(ENOENT\)\n$/);
  });

  test('a FIFO that nobody reads', async () => {
    const fifo = inFolder('fifo.mp4');
    execFileSync('mkfifo', [fifo]);
    const { status, stderr } =
      await runCommand(['record', fifo, ...small, '--overwrite']);
    assert.equal(status, 1);
    assert.match(stderr, /fifo\.mp4 is not a regular file\n$/);
  });

  test('a monitor that is not there', async () => {
    const { status, stderr } = await runCommand(
      ['record', inFolder('a.mp4'), '--monitor', 'NO-1']);
    assert.equal(status, 1);
    assert.match(stderr,
      /there is no monitor "NO-1"; there is only ".*" \(ERR_CAPTURE_NOT_FOUND\)/);
    assert.equal(existsSync(inFolder('a.mp4')), false);
  });
});

test('a window that is hidden for a while does not end a recording',
  async () => {
    const scene = await startScene({
      display: context.display, width: 160, height: 90, x: 9, y: 9, fps: 30,
    });
    const desktop = desktopOf(context.display);
    const file = inFolder('hidden.mkv');
    const command =
      startCommand(['record', file, '--window', String(scene.window)]);
    try {
      await command.waitFor(/^Recording/m, 'the recording runs');
      await desktop.hide(scene.window);
      await until(() => /window is hidden/.test(command.errors.text),
        'the trouble to be told');
      await desktop.show(scene.window);
      await until(() => /can be read again\n$/.test(command.errors.text),
        'its end to be told');
      await command.waitForProgress();
      command.child.kill('SIGINT');
      const { status, stderr } = await command.end();
      assert.equal(status, 0);
      assert.deepEqual(stderr.trim().split('\n').map((line) =>
        line.slice(0, 60)), [
        'linux-capture: video: the captured X11 window is hidden or p',
        'linux-capture: the window can be read again',
      ]);
      const { complaints, seconds } = await probeFile(file);
      assert.equal(complaints, '');
      assert.ok(seconds > 4, `${seconds} s`);
    } finally {
      await command.stop();
      await scene.stop();
    }
  });

test('what the libraries print is shown on demand only', async () => {
  const args = ['record', inFolder('loud.mp4'), ...small, '--duration', '1',
    '--overwrite'];
  assert.equal((await runCommand(args)).stderr, '');
  assert.match((await runCommand([...args, '--verbose'])).stderr,
    /^\[linux_capture_stage\]/m);
});
