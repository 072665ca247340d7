import assert from 'node:assert/strict';
import { execFile, execFileSync } from 'node:child_process';
import { existsSync } from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';
import { promisify } from 'node:util';
import { PipeOutput } from '../../lib/command/recording/pipe_output.mjs';
import { probeFile, runCommand, startCommand } from '../support/command.mjs';
import { useDisplay } from '../support/display.mjs';
import { endHelper, startHelper } from '../support/processes.mjs';
import { useFolder } from '../support/temporary_folder.mjs';
import { until } from '../support/until.mjs';

const run = promisify(execFile);
useDisplay();

const folder = useFolder();

const inFolder = (name) => path.join(folder, name);
const small = ['--monitor', '--size', '320x180', '--bitrate', '500k'];

/** The command with its output put into other programs. */
const into = (rest) =>
  ({ prefix: ['bash', '-c', `set -o pipefail; "$@" ${rest}`, 'bash'] });

/** What ffmpeg decodes of a file, without a word of complaint. */
async function picturesOf(file) {
  const { video, complaints } = await probeFile(file);
  assert.equal(complaints, '');
  return Number(video[0].nb_read_packets);
}

describe('a recording into a pipe', () => {
  test('is decoded by who reads it', async () => {
    const saved = inFolder('pipe.mkv');
    const { status, stdout, stderr } = await runCommand(
      ['record', '-', ...small, '--duration', '3'], {},
      into(`| tee ${saved} | ffmpeg -v error -i - -f null -`));
    assert.equal(status, 0, stderr);
    assert.equal(stdout, '');
    // What is told goes beside what is recorded.
    assert.match(stderr, /^Recording monitor .* to the standard output\n/);
    assert.match(stderr, /^in all: 00:03, \d+ pictures, /m);
    assert.ok(Math.abs(await picturesOf(saved) - 90) <= 2);
  });

  test('may be a file in the end, and need not be one that can be sought in',
    async () => {
      const saved = inFolder('redirected.mkv');
      const { status } = await runCommand(
        ['record', '-', ...small, '--duration', '2'], {}, into(`> ${saved}`));
      assert.equal(status, 0);
      assert.ok(Math.abs(await picturesOf(saved) - 60) <= 2);
      const fifo = inFolder('fifo');
      const out = inFolder('fifo.mkv');
      execFileSync('mkfifo', [fifo]);
      const reading = run('bash', ['-c', `cat ${fifo} > ${out}`]);
      const { status: second, stderr } = await runCommand(
        ['record', fifo, ...small, '--duration', '2']);
      await reading;
      assert.equal(second, 0, stderr);
      assert.ok(Math.abs(await picturesOf(out) - 60) <= 2);
    });

  test('reaches a program that the shell has put in its place', async () => {
    const saved = inFolder('substituted.mkv');
    const { status, stderr } = await runCommand(
      ['record', '--duration', '2', ...small], {},
      into(`>(cat > ${saved}); wait $!`));
    assert.equal(status, 0, stderr);
    assert.ok(Math.abs(await picturesOf(saved) - 60) <= 2);
  });

  test('ends when nobody reads it any more, and what was read plays',
    async () => {
      const saved = inFolder('head.mkv');
      const { status, stderr } = await runCommand(['record', '-', ...small], {},
        into(`| head -c 12000 > ${saved}`));
      assert.equal(status, 1);
      assert.match(stderr, /the standard output cannot be written: nobody reads it any more \(EPIPE\)\n$/);
      const { stdout } = await run('ffprobe', ['-v', 'fatal', '-count_packets',
        '-show_entries', 'stream=nb_read_packets', '-of', 'csv=p=0', saved]);
      assert.ok(Number(stdout) > 10, stdout);
    });

  test('that takes nothing says why', async () => {
    const { status, stderr } = await runCommand(['record', '-', ...small], {},
      into('> /dev/full'));
    assert.equal(status, 1);
    assert.match(stderr, /standard output cannot be written: the disk is full/);
    const fifo = inFolder('unread');
    execFileSync('mkfifo', [fifo]);
    const unread = await runCommand(['record', fifo, ...small]);
    assert.equal(unread.status, 1);
    assert.match(unread.stderr, /nobody reads from \S+unread\n$/);
  });

  test('is not let loose on a terminal', async () => {
    const { stdout } = await runCommand(['record', '-', ...small], {},
      { prefix: ['bash', '-c', 'script -qec "$*" /dev/null', 'bash'] });
    assert.match(stdout, /the recording would go to the terminal/);
  });

  test('of one who stands still ends all the same', async () => {
    const fifo = inFolder('still');
    execFileSync('mkfifo', [fifo]);
    const reader = startHelper('bash', ['-c', `exec 3< ${fifo}; sleep 60`],
      { stdio: 'ignore' });
    try {
      const output = await until(() => {
        try {
          return new PipeOutput(fifo);
        } catch {
          return null;
        }
      }, 'the reader');
      const writing = output.write(Buffer.alloc(1 << 20));
      output.hurry();
      await writing;
      await output.close();
      assert.match(output.failure.message, /nobody reads it at this moment$/);
    } finally {
      await endHelper(reader);
    }
  });
});

describe('a file that grows', () => {
  for (const ending of ['mkv', 'mp4']) {
    test(`can be followed when it is .${ending}`, async () => {
      const file = inFolder(`growing.${ending}`);
      const command = startCommand(['record', file, ...small]);
      await command.waitFor(/^Recording/m, 'the recording runs');
      await until(() => existsSync(file), 'the file');
      const { stdout, stderr } = await run('bash', ['-c',
        `tail -c +1 -f ${file} | ffmpeg -v error -i - -frames:v 100 ` +
        '-f framecrc - ; kill %% 2> /dev/null; true'], { timeout: 60_000 });
      assert.equal(command.child.exitCode, null);
      assert.equal(stderr, '');
      assert.equal(stdout.split('\n')
        .filter((line) => /^0,/.test(line)).length, 100);
      command.child.kill('SIGINT');
      assert.equal((await command.end()).status, 0);
      assert.ok(await picturesOf(file) >= 100);
    });
  }
});

describe('who starts it', () => {
  test('is told what was written and how to watch it', async () => {
    const file = inFolder('my film.mp4');
    const { status, stdout } =
      await runCommand(['record', file, ...small, '--duration', '2']);
    assert.equal(status, 0);
    const [summary, advice] = stdout.trim().split('\n').slice(-2);
    assert.match(summary, /my film\.mp4: 00:02, \d+ pictures, [\d.]+ kB, 0\.\d\d Mbit\/s, \d+ dropped$/);
    assert.equal(advice, `To watch it: xdg-open '${file}'`);
  });

  test('is told of a failure as JSON too', async () => {
    const { status, stdout } = await runCommand(['record', inFolder('x.mp4'),
      '--monitor', 'NO-1', '--json']);
    assert.equal(status, 1);
    const { event, reason, error } = JSON.parse(stdout);
    assert.deepEqual({ event, reason }, { event: 'ended', reason: 'error' });
    assert.match(error, /there is no monitor "NO-1"/);
  });

  test('may ask for layers, and for a hardware encoder that is not there',
    async () => {
      const file = inFolder('layers.mp4');
      assert.equal((await runCommand(['record', file, ...small, '--layers',
        '3', '--duration', '2'])).status, 0);
      assert.ok(await picturesOf(file) > 50);
      const { status, stderr } = await runCommand(
        ['record', inFolder('fast.mp4'), '--monitor', '--hardware']);
      assert.equal(status, 1);
      assert.match(stderr, /\(ERR_CAPTURE_\w+\)\n$/);
      assert.equal(existsSync(inFolder('fast.mp4')), false);
    });
});

test('a key of the terminal pauses, another one ends', async () => {
  const file = inFolder('keys.mp4');
  const command = startCommand(['record', file, ...small], {}, { prefix: [
    'bash', '-c', '(sleep 6; printf p; sleep 3; printf " "; sleep 3; ' +
      'printf q; sleep 20) | script -qec "$*" /dev/null', 'bash'] });
  const { status, stdout } = await command.end(60_000);
  assert.equal(status, 0, stdout);
  const order = ['Keys: p pauses, q ends', 'Paused; p goes on', '  paused  ',
    'Recording again', 'To watch it: '].map((text) => stdout.indexOf(text));
  assert.ok(order.every((at, i) => at > (order[i - 1] ?? 0)), stdout);
  assert.ok(await picturesOf(file) > 30);
});
