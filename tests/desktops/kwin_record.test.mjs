import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { test } from 'node:test';
import { promisify } from 'node:util';
import { probeFile, startCommand } from '../support/command.mjs';
import { patchAt, patchColours, readNumber } from '../support/picture.mjs';
import { startFakePortal } from '../support/portal_program.mjs';
import { followsFormats } from '../support/pipewire_version.mjs';
import { until } from '../support/until.mjs';
import { enterDesktop } from './support/cast_capture.mjs';
import { startKwin } from './support/kwin.mjs';

const run = promisify(execFile);
const size = { width: 320, height: 180 };

/** The pictures of a file that may still grow. */
async function picturesOf(file) {
  const { stdout } = await run('ffmpeg', ['-v', 'quiet', '-i', file,
    '-fps_mode', 'passthrough', '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-'],
  { encoding: 'buffer', maxBuffer: 2 ** 30 });
  const length = size.width * size.height * 3;
  return Array.from({ length: Math.floor(stdout.length / length) },
    (_, index) => ({ ...size,
      data: stdout.subarray(index * length, (index + 1) * length) }));
}

/** Whether a picture of the window is whole, and of the window alone. */
const isWhole = (picture) =>
  patchColours.every((colour, patch) => colour.every((value, channel) =>
    Math.abs(value - patchAt(picture, patch)[channel]) < 40));

// Later versions follow without a word.
const changes = (output) => followsFormats ? Infinity
  : output.match(/"event":"recovered"/g)?.length ?? 0;

test('a recording of a window of KDE goes on when the window is resized',
  async () => {
    const desktop = await startKwin(size);
    enterDesktop(desktop);
    const folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-record-'));
    let portal;
    try {
      const window = await desktop.startWindow({ fps: 15 });
      const cast = await desktop.startCast();
      // Its dialog is what cannot be had here.
      portal = await startFakePortal(
        desktop.environment.DBUS_SESSION_BUS_ADDRESS, [
          '--remote', desktop.pipeWire.socket,
          '--streams', `[(uint32 ${cast.node.id}, {'size': ` +
            `<(${size.width}, ${size.height})>, ` +
            "'source_type': <uint32 2>})]",
        ]);
      const file = path.join(folder, 'window.mkv');
      const command = startCommand(
        ['record', file, '--portal', '--fps', '15', '--json']);
      await command.waitFor(/^\{/m, 'the recording runs');
      window.command('hold');
      await window.waitFor(/^holding$/m, 'a still window');
      const shown = [];
      for (const other of ['480 270', '240 136', '320 180']) {
        // The shape stays, so that the whole picture has to be seen.
        window.command(`size ${other}`);
        await until(() => changes(command.output.text) > shown.length,
          'the new size');
        const { number } = await window.sendOne();
        shown.push(number);
        await until(async () => {
          const last = (await picturesOf(file)).at(-1);
          return last && readNumber(last) === number && isWhole(last);
        }, `the window of ${other} in the file`);
      }
      command.child.kill('SIGINT');
      const { status, stderr } = await command.end();
      assert.equal(status, 0, stderr);
      const { video, complaints } = await probeFile(file);
      assert.equal(complaints, '');
      assert.equal(video.length, 1);
      assert.deepEqual([video[0].width, video[0].height],
        [size.width, size.height]);
      const numbers = (await picturesOf(file)).map(readNumber)
        .filter((number) => number !== null);
      assert.deepEqual(numbers, numbers.toSorted((a, b) => a - b));
      assert.deepEqual(shown.filter((number) => !numbers.includes(number)), []);
    } finally {
      await portal?.stop();
      await desktop.stop();
      await rm(folder, { recursive: true, force: true });
    }
  });
