import assert from 'node:assert/strict';
import { readFileSync, readdirSync } from 'node:fs';
import { describe, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { probeFile } from '../support/command.mjs';
import {
  clickDelays, clicksIn, flashesIn, keyframesIn, pictureTimes,
} from '../support/recorded_clicks.mjs';
import { useFlashingDesktop } from '../support/recording.mjs';
import { until } from '../support/until.mjs';

// A flash waits for the next picture, up to 33 ms, or longer on a busy machine.
// Ten pauses that moved one against the other would add up to more.
const toleranceSeconds = 0.15;
const pauses = 10;
const lastSeconds = 6;

const desktop = useFlashingDesktop();

const linesOf = ({ output }) => output.text.split('\n').slice(0, -1)
  .map((line) => JSON.parse(line));

const count = (command, name) =>
  linesOf(command).filter(({ event }) => event === name).length;

const childrenOf = (pid) => readdirSync(`/proc/${pid}/task`).flatMap((task) =>
  readFileSync(`/proc/${pid}/task/${task}/children`, 'utf8')
    .trim().split(' ').filter(Boolean).map(Number));

/** Pauses and goes on, as somebody does who sends the signal. */
async function pauseOnce(command, round) {
  command.child.kill('SIGUSR1');
  await until(() => count(command, 'paused') === round, 'the pause');
  await sleep(700 + 90 * round);
  command.child.kill('SIGUSR1');
  await until(() => count(command, 'resumed') === round, 'its end');
}

test('ten pauses leave no gap, and picture and sound together',
  async (context) => {
    const { file, command } = desktop.record('pauses.mkv',
      ['--json', '--audio-codec', 'opus', '--audio-bitrate', '96k']);
    await until(() => count(command, 'progress') > 0, 'the first picture');
    const [{ pid }] = linesOf(command);
    assert.equal(pid, command.child.pid);
    for (let round = 1; round <= pauses; round += 1) {
      await sleep(500 + 130 * round);
      await pauseOnce(command, round);
    }
    await sleep(lastSeconds * 1000);
    command.child.kill('SIGINT');
    const { status, stderr } = await command.end();
    assert.equal(stderr, '');
    assert.equal(status, 0);
    const ended = linesOf(command).at(-1);
    assert.equal(ended.event, 'ended');
    assert.deepEqual(ended.files, [file]);

    const { video, audio, seconds, complaints } = await probeFile(file);
    assert.equal(complaints, '');
    assert.equal(audio[0].codec_name, 'opus');
    assert.ok(Math.abs(seconds - ended.seconds) < 0.2,
      `${seconds} s, told ${ended.seconds} s`);
    assert.equal(Number(video[0].nb_read_packets), ended.pictures);
    // All pauses were longer than any step that a busy machine makes.
    const times = await pictureTimes(file);
    const steps = times.slice(1).map((time, i) => time - times[i]);
    assert.ok(Math.min(...steps) > 0);
    assert.ok(Math.max(...steps) < 0.6, `${Math.max(...steps)} s`);

    const clicks = await clicksIn(file);
    const flashes = (await flashesIn(file))
      .filter((flash) => flash > seconds - lastSeconds);
    const delays = clickDelays(flashes, clicks);
    context.diagnostic(`clicks after flashes, in milliseconds: ${
      delays.map((delay) => (delay * 1000).toFixed(0)).join(' ')}`);
    assert.ok(flashes.length >= 3, `${flashes.length} flashes`);
    const far = delays.filter((delay) => Math.abs(delay) >= toleranceSeconds);
    assert.ok(far.length <= delays.length / 4, delays.join(', '));
  });

describe('a pause', () => {
  test('may be the end of a recording', async () => {
    const { file, command } = desktop.record('paused.mp4', ['--json']);
    await until(() => count(command, 'progress') >= 2, 'some pictures');
    command.child.kill('SIGUSR1');
    await until(() => count(command, 'paused') === 1, 'the pause');
    await sleep(1500);
    command.child.kill('SIGINT');
    const { status, stderr } = await command.end();
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
    const { video, audio, seconds, complaints } = await probeFile(file);
    assert.equal(complaints, '');
    assert.deepEqual([video.length, audio.length], [1, 1]);
    const { seconds: told } = linesOf(command).at(-1);
    assert.ok(Math.abs(seconds - told) < 0.2, `${seconds} s, told ${told} s`);
  });

  test('and all other signals at once leave a file that plays', async () => {
    const { file, command } = desktop.record('signals.mkv', ['--json']);
    await until(() => count(command, 'progress') >= 2, 'some pictures');
    for (const name of ['SIGUSR1', 'SIGUSR2', 'SIGINT', 'SIGUSR1', 'SIGTERM']) {
      command.child.kill(name);
    }
    const { status, stderr } = await command.end();
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
    assert.equal((await probeFile(file)).complaints, '');
  });
});

describe('a recording in pieces of three seconds', () => {
  test('has all pictures and all sound, in step', async () => {
    const { command } = desktop.record('piece.mp4',
      ['--json', '--max-time', '3', '--duration', '8']);
    const { status, stderr } = await command.end();
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
    const told = linesOf(command).filter(({ event }) => event === 'file');
    assert.equal(told.length, 3);
    assert.deepEqual(linesOf(command).at(-1).files,
      told.map(({ file }) => file));
    const flashes = [];
    const clicks = [];
    let beginSeconds = 0;
    for (const { file, seconds: length } of told) {
      const { video, audio, complaints } = await probeFile(file);
      assert.equal(complaints, '');
      const pictures = Number(video[0].duration);
      assert.ok(Math.abs(pictures - length) < 0.05, `${pictures} s`);
      assert.ok(pictures <= 3.2, `${pictures} s`);
      // A block of the encoder may stand over at either end.
      assert.ok(Math.abs(Number(audio[0].duration) - pictures) < 0.06,
        `${audio[0].duration} s of sound, ${pictures} s of pictures`);
      assert.equal((await keyframesIn(file))[0], 0);
      flashes.push(...(await flashesIn(file)).map((at) => at + beginSeconds));
      clicks.push(...(await clicksIn(file)).map((at) => at + beginSeconds));
      beginSeconds += pictures;
    }
    const heard = flashes.filter((flash) => flash > clicks[0] - 0.5);
    const far = clickDelays(heard, clicks)
      .filter((delay) => Math.abs(delay) >= toleranceSeconds);
    assert.ok(heard.length >= 5, `${heard.length} flashes`);
    // A click of a busy machine may be lost, or one that a file begins with.
    assert.ok(far.length <= 2, `${flashes} and ${clicks}`);
    // Time goes on from file to file.
    const steps = flashes.slice(1).map((flash, i) => flash - flashes[i]);
    for (const step of steps) {
      assert.ok(Math.abs(step - Math.round(step)) < 0.15, steps.join(', '));
    }
  });
});

test('an encoder of sound that is killed ends a recording that plays',
  async () => {
    const { file, command } = desktop.record('killed.mkv',
      ['--json', '--audio-codec', 'opus']);
    await until(() => count(command, 'progress') >= 3, 'some pictures');
    const [encoder] = childrenOf(command.innerPid()).filter((pid) =>
      readFileSync(`/proc/${pid}/comm`, 'utf8') === 'ffmpeg\n');
    process.kill(encoder, 'SIGKILL');
    const { status, stderr } = await command.end();
    assert.equal(status, 1);
    assert.match(stderr,
      /: the sound cannot be encoded: ffmpeg was ended by SIGKILL\n$/);
    const { video, audio, complaints } = await probeFile(file);
    assert.equal(complaints, '');
    assert.deepEqual([video.length, audio.length], [1, 1]);
    assert.ok(Number(video[0].nb_read_packets) > 30);
  });

test('a replay that cannot be written is told, and ends nothing',
  async () => {
    const { command } = desktop.record('full.mp4',
      ['--json', '--replay', '3'], { prefix: ['prlimit', '--fsize=4000'] });
    await until(() => count(command, 'progress') >= 3, 'some pictures');
    for (const round of [1, 2]) {
      command.child.kill('SIGUSR2');
      await until(() => count(command, 'trouble') === round, 'the trouble');
    }
    command.child.kill('SIGINT');
    const { status } = await command.end();
    assert.equal(status, 0);
    const told = linesOf(command).filter(({ event }) => event === 'trouble');
    for (const { message } of told) {
      assert.match(message, /cannot be written: it may not become larger/);
    }
  });
