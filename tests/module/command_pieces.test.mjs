import assert from 'node:assert/strict';
import { statSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';
import { probeFile, runCommand } from '../support/command.mjs';
import { useDisplay } from '../support/display.mjs';
import { useFolder } from '../support/temporary_folder.mjs';

useDisplay();

const folder = useFolder();

const inFolder = (name) => path.join(folder, name);

describe('numbered files', () => {
  test('that exist are kept', async () => {
    writeFileSync(inFolder('kept-001.mp4'), 'precious');
    const { status, stderr } = await runCommand(['record',
      inFolder('kept.mp4'), '--monitor', '--max-time', '2']);
    assert.equal(status, 1);
    assert.match(stderr, /kept-001\.mp4 exists already; --overwrite/);
  });

  test('in the way of a later one end a recording that plays', async () => {
    writeFileSync(inFolder('late-002.mp4'), 'precious');
    const { status, stderr } = await runCommand(['record',
      inFolder('late.mp4'), '--monitor', '--size', '320x180', '--max-time',
      '2']);
    assert.equal(status, 1);
    assert.match(stderr, /late-002\.mp4 exists already/);
    const { seconds, complaints } = await probeFile(inFolder('late-001.mp4'));
    assert.equal(complaints, '');
    assert.ok(seconds > 1.5 && seconds < 2.5, `${seconds} s`);
    assert.equal(statSync(inFolder('late-002.mp4')).size, 8);
  });
});
