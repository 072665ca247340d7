import assert from 'node:assert/strict';
import { rmSync, statSync } from 'node:fs';
import { mkdir } from 'node:fs/promises';
import path from 'node:path';
import { describe, test } from 'node:test';
import { probeFile } from '../support/command.mjs';
import { useFlashingDesktop } from '../support/recording.mjs';

const desktop = useFlashingDesktop();

// A few seconds of the desktop, which is small and nearly still.
const limitBytes = 32_768;
const ownMounts = ['unshare', '--mount',
  ...process.getuid() === 0 ? [] : ['--map-root-user']];

/** A disk of its own for the command, from which the file is taken at last. */
const smallDisk = (disk, saved) => [...ownMounts, 'sh', '-c', [
  'set -e',
  `mount -t tmpfs -o size=${limitBytes} tmpfs '${disk}'`,
  'status=0',
  '"$@" || status=$?',
  `cp '${disk}'/* '${saved}'`,
  'exit $status',
].join('\n'), 'sh'];

/** What a quota does: the file cannot become larger. */
const quota = ['prlimit', `--fsize=${limitBytes}`];

async function checkEnd({ status, signal, stderr }, reason) {
  assert.equal(signal, null);
  assert.equal(status, 1);
  assert.match(stderr.trim().split('\n').at(-1), reason);
}

async function checkFile(file, hasSound) {
  const { video, audio, complaints } = await probeFile(file);
  assert.equal(complaints, '');
  assert.deepEqual([video.length, audio.length], [1, hasSound ? 1 : 0]);
  const { size } = statSync(file);
  assert.ok(size > limitBytes / 4 && size <= limitBytes, `${size} bytes`);
  const pictures = Number(video[0].nb_read_packets);
  assert.ok(pictures >= 20, `${pictures} pictures`);
}

for (const ending of ['mp4', 'mkv']) {
  for (const hasSound of [true, false]) {
    const what = `.${ending} with${hasSound ? '' : 'out'} sound`;
    describe(`a recording into ${what}`, () => {
      test('ends when the disk is full, and plays up to there', async () => {
        const disk = path.join(desktop.folder, `disk-${ending}-${hasSound}`);
        const saved = path.join(desktop.folder, `saved-${hasSound}.${ending}`);
        await mkdir(disk);
        const { command } = desktop.record(`${path.basename(disk)}/a.${ending}`,
          [], { hasSound, prefix: smallDisk(disk, saved) });
        await checkEnd(await command.end(),
          /a\.m\w\w cannot be written: the disk is full \(ENOSPC\)$/);
        await checkFile(saved, hasSound);
      });

      test('ends when it may not grow, and plays up to there', async () => {
        const { command, file } = desktop.record(`quota-${hasSound}.${ending}`,
          [], { hasSound, prefix: quota });
        await checkEnd(await command.end(),
          /cannot be written: it may not become larger \(EFBIG\)$/);
        await checkFile(file, hasSound);
      });

      test('ends when its folder is removed', async () => {
        const folder = path.join(desktop.folder, `gone-${ending}-${hasSound}`);
        await mkdir(folder);
        const { command } = desktop.record(
          `${path.basename(folder)}/a.${ending}`, [], { hasSound });
        await command.waitFor(/^Recording/m, 'the recording runs');
        rmSync(folder, { recursive: true });
        await checkEnd(await command.end(), /a\.m\w\w was removed$/);
      });
    });
  }
}
