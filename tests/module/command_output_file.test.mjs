import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import {
  existsSync, mkdirSync, readFileSync, rmSync, symlinkSync, writeFileSync,
} from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';
import { OutputFile, removeLeftover } from
  '../../lib/command/recording/output_file.mjs';
import { useFolder } from '../support/temporary_folder.mjs';

const folder = useFolder();

const inFolder = (name) => path.join(folder, name);
const replacing = Object.freeze({ mayReplace: true });
const text = (name) => readFileSync(inFolder(name), 'utf8');

function precious(name) {
  writeFileSync(inFolder(name), 'precious');
  return inFolder(name);
}

describe('an output file', () => {
  test('is taken before anything is written, for one alone', () => {
    const file = new OutputFile(inFolder('taken.mp4'));
    assert.throws(() => new OutputFile(inFolder('taken.mp4')),
      /taken\.mp4 exists already; --overwrite replaces it/);
    file.write(Buffer.from('abc'), 0);
    file.write(Buffer.from('X'), 1);
    file.write(Buffer.from('def'), 3);
    file.close();
    assert.equal(text('taken.mp4'), 'aXcdef');
    assert.equal(file.size, 6);
  });

  test('is not left behind empty', () => {
    new OutputFile(inFolder('empty.mp4')).close();
    assert.equal(existsSync(inFolder('empty.mp4')), false);
  });

  test('of a killed process is removed by who it was told to', () => {
    const name = inFolder('killed.mp4');
    const { identity } = new OutputFile(name);
    removeLeftover(name, 'of another');
    assert.equal(existsSync(name), true);
    writeFileSync(name, 'precious');
    removeLeftover(name, identity);
    assert.equal(text('killed.mp4'), 'precious');
    writeFileSync(name, '');
    removeLeftover(name, identity);
    assert.equal(existsSync(name), false);
    removeLeftover(name, identity);
    assert.equal(new OutputFile(precious('told.mp4'), replacing).identity,
      null);
  });

  test('that another program has replaced meanwhile is left to it', () => {
    const file = new OutputFile(inFolder('foreign.mp4'));
    rmSync(inFolder('foreign.mp4'));
    precious('foreign.mp4');
    file.close();
    assert.equal(text('foreign.mp4'), 'precious');
  });

  test('keeps what it replaces until something takes its place', () => {
    const name = precious('kept.mp4');
    const file = new OutputFile(name, replacing);
    file.close();
    assert.equal(text('kept.mp4'), 'precious');
    const next = new OutputFile(name, replacing);
    next.write(Buffer.from('new'), 0);
    next.close();
    assert.equal(text('kept.mp4'), 'new');
  });

  test('never is one that a link points at', () => {
    precious('target.mp4');
    symlinkSync(inFolder('target.mp4'), inFolder('link.mp4'));
    assert.throws(() => new OutputFile(inFolder('link.mp4')),
      /exists already/);
    assert.equal(text('target.mp4'), 'precious');
  });

  test('needs a folder', () => {
    assert.throws(() => new OutputFile(inFolder('no/such.mp4'), replacing),
      { code: 'ENOENT', message: `the folder ${inFolder('no')} does not exist` });
    precious('file');
    assert.throws(() => new OutputFile(inFolder('file/such.mp4')),
      { code: 'ENOTDIR', message: `${inFolder('file')} is not a folder` });
  });

  test('is no FIFO, no folder and no device', () => {
    execFileSync('mkfifo', [inFolder('fifo.mp4')]);
    mkdirSync(inFolder('folder.mp4'));
    symlinkSync('/dev/null', inFolder('null.mp4'));
    for (const name of ['fifo.mp4', 'folder.mp4', 'null.mp4']) {
      assert.throws(() => new OutputFile(inFolder(name)), /exists already/);
      assert.throws(() => new OutputFile(inFolder(name), replacing),
        /is not a regular file/);
      assert.equal(existsSync(inFolder(name)), true);
    }
  });

  test('tells when it was removed', () => {
    const file = new OutputFile(inFolder('gone.mp4'));
    file.write(Buffer.from('abc'), 0);
    assert.equal(file.failure, null);
    rmSync(inFolder('gone.mp4'));
    file.write(Buffer.from('def'), 3);
    assert.match(file.failure.message, /gone\.mp4 was removed$/);
    file.close();
  });

  test('may be moved', () => {
    const file = new OutputFile(inFolder('before.mp4'));
    file.write(Buffer.from('abc'), 0);
    execFileSync('mv', [inFolder('before.mp4'), inFolder('behind.mp4')]);
    file.write(Buffer.from('def'), 3);
    file.close();
    assert.equal(file.failure, null);
    assert.equal(text('behind.mp4'), 'abcdef');
  });
});
