import assert from 'node:assert/strict';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { afterEach, beforeEach, describe, test } from 'node:test';
import { listTargets, startCapture } from 'linux-capture-addon/session';

test('a part that is not known cannot be listed', async () => {
  for (const only of ['wayland', '', 'toString']) {
    await assert.rejects(listTargets({ only }), {
      code: 'ERR_CAPTURE_ARGUMENT', message: 'only must be "pipewire" or "x11"',
    });
  }
});

describe('a program that cannot list', () => {
  let folder;
  beforeEach(() => {
    folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-listing-'));
    process.env.LINUX_CAPTURE_PROGRAMS = folder;
  });
  afterEach(() => {
    delete process.env.LINUX_CAPTURE_PROGRAMS;
    rmSync(folder, { recursive: true });
  });

  /** Puts a shell script in the program's place. */
  const put = (text) => writeFileSync(
    path.join(folder, 'linux-capture-targets'), `#!/bin/sh\n${text}\n`,
    { mode: 0o755 });

  test('fails the listing with its own words', async () => {
    put('echo "linux-capture-targets: no memory" >&2; exit 3');
    await assert.rejects(listTargets(),
      { code: 'ERR_CAPTURE_PROGRAM', message: 'no memory' });
  });

  test('fails it with its status where it says nothing', async () => {
    put('exit 3');
    await assert.rejects(listTargets(), {
      code: 'ERR_CAPTURE_PROGRAM',
      message: 'linux-capture-targets ended with status 3',
    });
  });

  test('fails it when what it prints is no list', async () => {
    put('echo "Segmentation"');
    await assert.rejects(listTargets(), {
      code: 'ERR_CAPTURE_PROGRAM',
      message: 'linux-capture-targets printed something else than its list',
    });
  });

  test('keeps a capture from starting', async () => {
    put('exit 3');
    await assert.rejects(startCapture({ source: { type: 'monitor' } }),
      { code: 'ERR_CAPTURE_PROGRAM' });
  });
});
