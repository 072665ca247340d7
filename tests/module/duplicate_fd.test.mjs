import assert from 'node:assert/strict';
import {
  closeSync, fstatSync, mkdtempSync, readFileSync, readSync, readdirSync,
  rmSync, statSync, writeFileSync,
} from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { startNode } from '../support/child.mjs';
import { waitForText } from '../support/processes.mjs';

const closeOnExec = 0o2000000;
const folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-test-'));
const file = path.join(folder, 'content');
let helper;
let helperFd;

before(async () => {
  writeFileSync(file, 'shared between two processes');
  helper = startNode(`
    const { openSync } = await import('node:fs');
    console.log('fd=' + openSync(${JSON.stringify(file)}, 'r'));
    // The descriptor stays open until the input is closed.
    for await (const chunk of process.stdin);
  `);
  const match = await waitForText(
    helper.child, helper.stdout, /fd=(\d+)\n/, 'the helper opens its file');
  helperFd = Number(match[1]);
});

after(async () => {
  helper.child.stdin.end();
  await helper.end(5_000);
  rmSync(folder, { recursive: true });
});

test('a descriptor of another process is copied into this one', () => {
  const fd = addon.duplicateFdFromPid(helper.pid, helperFd);
  try {
    assert.equal(fstatSync(fd).ino, statSync(file).ino);
    const content = Buffer.alloc(100);
    const length = readSync(fd, content, 0, content.length, 0);
    assert.equal(content.toString('utf8', 0, length),
      'shared between two processes');
  } finally {
    closeSync(fd);
  }
});

test('the copy is not handed on to programs started later', () => {
  const fd = addon.duplicateFdFromPid(helper.pid, helperFd);
  try {
    const [, flags] = readFileSync(`/proc/self/fdinfo/${fd}`, 'utf8')
      .match(/^flags:\s+(\d+)$/m);
    assert.notEqual(parseInt(flags, 8) & closeOnExec, 0, `flags ${flags}`);
  } finally {
    closeSync(fd);
  }
});

test('exactly two numbers are taken', () => {
  const refused = {
    name: 'TypeError',
    message: 'duplicateFdFromPid requires pid and fd numbers',
  };
  for (const args of [[], [helper.pid], [String(helper.pid), helperFd],
    [helper.pid, String(helperFd)], [helper.pid, null], [1n, 2n],
    [helper.pid, helperFd, 0], [helper.pid, helperFd, undefined]]) {
    assert.throws(() => addon.duplicateFdFromPid(...args), refused);
  }
});

test('the process id is judged before the descriptor', () => {
  for (const pid of [0, -1, 0.9, Number.NaN, 2 ** 32]) {
    assert.throws(() => addon.duplicateFdFromPid(pid, -1),
      { name: 'Error', message: 'pid must be positive' });
  }
  for (const fd of [-1, -2147483648, 2 ** 31]) {
    assert.throws(() => addon.duplicateFdFromPid(helper.pid, fd),
      { name: 'Error', message: 'targetFd must be non-negative' });
  }
});

test('a process that does not exist is named with the reason', () => {
  assert.throws(() => addon.duplicateFdFromPid(2147483647, 0), {
    name: 'Error',
    message: 'pidfd_open failed for portal helper pid 2147483647: ' +
      'No such process',
  });
});

test('a descriptor that does not exist is named with the reason', () => {
  assert.throws(() => addon.duplicateFdFromPid(helper.pid, 999_999), {
    name: 'Error',
    message: `pidfd_getfd failed for portal helper pid ${helper.pid} ` +
      'fd 999999: Bad file descriptor',
  });
});

test('no call leaves a descriptor of its own behind', () => {
  const open = () => readdirSync('/proc/self/fd').length;
  const before = open();
  for (let i = 0; i < 20; i += 1) {
    closeSync(addon.duplicateFdFromPid(helper.pid, helperFd));
    assert.throws(() => addon.duplicateFdFromPid(helper.pid, 999_999));
    assert.throws(() => addon.duplicateFdFromPid(2147483647, 0));
  }
  assert.equal(open(), before);
});
