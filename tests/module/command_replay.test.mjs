import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { Replay } from '../../lib/command/recording/replay.mjs';
import { ReplayBuffer } from
  '../../lib/command/recording/replay_buffer.mjs';
import { probeFile } from '../support/command.mjs';
import { clickDelays, clicksIn, flashesIn, keyframesIn } from
  '../support/recorded_clicks.mjs';
import { useFlashingDesktop } from '../support/recording.mjs';
import { until } from '../support/until.mjs';

const second = 1_000_000;
const pictureUs = second / 10;

/** Pictures of some seconds, with a keyframe each second, and their sound. */
function fill(buffer, seconds, { bytes = 1000, hasSound = true } = {}) {
  for (let i = 0; i < seconds * 10; i += 1) {
    buffer.addVideo({ type: 'video', timestampUs: i * pictureUs,
      durationUs: pictureUs, isKeyframe: i % 10 === 0,
      data: Buffer.alloc(bytes) });
    if (!hasSound) continue;
    buffer.addAudio({ type: 'audio', timestampUs: i * pictureUs - 50_000,
      durationUs: pictureUs, samples: new Int16Array(100) });
  }
}

describe('what is kept for a replay', () => {
  test('is as long as was asked for, and begins with a keyframe', () => {
    const buffer = new ReplayBuffer({ seconds: 5 });
    fill(buffer, 23.4);
    assert.ok(buffer.seconds >= 5 && buffer.seconds < 6.1,
      `${buffer.seconds} s`);
    const packets = buffer.read();
    const pictures = packets.filter(({ type }) => type === 'video');
    assert.equal(pictures[0].isKeyframe, true);
    const sound = packets.filter(({ type }) => type === 'audio');
    const [{ timestampUs: beginUs }] = pictures;
    assert.ok(sound[0].timestampUs + pictureUs > beginUs);
    assert.ok(sound[0].timestampUs <= beginUs);
    // The last picture, whose sound is not there yet, is left out.
    assert.ok(pictures.at(-1).timestampUs + pictureUs <=
      sound.at(-1).timestampUs + pictureUs);
  });

  test('never takes more memory than it may', () => {
    const buffer = new ReplayBuffer({ seconds: 1000, mostBytes: 100_000 });
    fill(buffer, 60);
    assert.ok(buffer.bytes <= 100_000, `${buffer.bytes} bytes`);
    assert.ok(buffer.seconds > 5, `${buffer.seconds} s`);
    assert.equal(buffer.read()[0].timestampUs % second < second, true);
    assert.equal(
      buffer.read().find(({ type }) => type === 'video').isKeyframe, true);
  });

  test('does not collect sound without pictures', () => {
    const buffer = new ReplayBuffer({ seconds: 2 });
    for (let i = 0; i < 1000; i += 1) {
      buffer.addAudio({ type: 'audio', timestampUs: i * pictureUs,
        durationUs: pictureUs, samples: new Int16Array(100) });
    }
    assert.ok(buffer.bytes <= 22 * 200, `${buffer.bytes} bytes`);
    assert.equal(buffer.seconds, 0);
  });

  test('has its pictures where no sound comes', () => {
    const buffer = new ReplayBuffer({ seconds: 2 });
    fill(buffer, 5, { hasSound: false });
    assert.ok(buffer.read().length >= 20);
  });
});

test('a replay for a folder that is not there is refused at once', () => {
  assert.throws(() => new Replay('/nowhere/replay.mp4', { seconds: 5 }),
    { message: 'the folder /nowhere does not exist' });
});

const desktop = useFlashingDesktop();

const filesIn = ({ output }) => output.text.split('\n').slice(0, -1)
  .map((line) => JSON.parse(line)).filter(({ event }) => event === 'file');

test('a replay is written whenever it is asked for, while it goes on',
  async (context) => {
    const { command, file } =
      desktop.record('replay.mp4', ['--json', '--replay', '4']);
    await until(() => /"seconds":[6-9]/.test(command.output.text),
      'more than is kept');
    command.child.kill('SIGUSR2');
    await until(() => filesIn(command).length === 1, 'the first file');
    await sleep(3000);
    command.child.kill('SIGUSR2');
    await until(() => filesIn(command).length === 2, 'the second file');
    // One that is asked for at the end is written to its end.
    command.child.kill('SIGUSR2');
    command.child.kill('SIGINT');
    const { status, stderr } = await command.end();
    assert.deepEqual({ status, stderr }, { status: 0, stderr: '' });
    assert.equal(existsSync(file), false);
    const files = filesIn(command);
    assert.deepEqual(files.map((entry) => path.basename(entry.file)),
      ['replay-001.mp4', 'replay-002.mp4', 'replay-003.mp4']);
    for (const entry of files) {
      const { video, audio, seconds, complaints } =
        await probeFile(entry.file);
      assert.equal(complaints, '');
      assert.deepEqual([video.length, audio.length], [1, 1]);
      assert.equal((await keyframesIn(entry.file))[0], 0);
      assert.ok(seconds > 3 && seconds < 7, `${seconds} s`);
    }
    const [{ file: first }] = files;
    const delays =
      clickDelays(await flashesIn(first), await clicksIn(first));
    context.diagnostic(`clicks after flashes, in milliseconds: ${
      delays.map((delay) => (delay * 1000).toFixed(0)).join(' ')}`);
    assert.ok(delays.length >= 2);
    assert.ok(delays.filter((delay) => Math.abs(delay) < 0.15).length >=
      delays.length - 1, delays.join(', '));
  });
