import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import systemPackages from '../../lib/system_packages.js';
import { sysrootOf } from '../../scripts/cross_build.mjs';

const root = fileURLToPath(new URL('../..', import.meta.url));
const { purposes, packages } = systemPackages.list;

const run = (command, ...args) =>
  spawnSync(command, args, { cwd: root, encoding: 'utf8' });

test('the root folder of an earlier build is known', () => {
  const cache = '// For a comment.\nCMAKE_SYSROOT:PATH=/other\n' +
    'LINUX_CAPTURE_SYSROOT:UNINITIALIZED=/roots/a b\nX:BOOL=ON\n';
  assert.equal(sysrootOf(cache), '/roots/a b');
  assert.equal(sysrootOf(cache.replace('UNINITIALIZED', 'PATH')), '/roots/a b');
  assert.equal(sysrootOf('CMAKE_SYSROOT:PATH=/other\n'), null);
  assert.equal(sysrootOf('LINUX_CAPTURE_SYSROOT:PATH=\n'), null);
});

// Else the package would lack for one processor what it has for the other.
test('a root for another processor has all that a build looks for', () => {
  const looked = purposes.build.filter((key) =>
    packages[key].probe.startsWith('module:'));
  assert.ok(looked.length > 8, looked.join(' '));
  const missing = looked.filter((key) => !purposes.arm64Root.includes(key));
  assert.deepEqual(missing, []);
});

test('what is no root folder for the processor is refused', () => {
  const { status, stderr } = run('cmake', '-DLINUX_CAPTURE_SYSROOT=/nowhere',
    '-P', 'scripts/arm64/toolchain.cmake');
  assert.notEqual(status, 0);
  assert.match(stderr, /LINUX_CAPTURE_SYSROOT is no root folder of Debian/);
});

test('a processor that is not emulated is refused by its name', () => {
  const { status, stderr } = run(process.execPath, 'scripts/test_matrix.mjs',
    '--processor', 'mips');
  assert.equal(status, 1);
  assert.match(stderr, /"mips" is not a processor that is emulated here/);
});

test('the emulator wants a command', () => {
  const { status, stderr } = run('bash', 'scripts/arm64/emulator.sh');
  assert.equal(status, 1);
  assert.match(stderr, /usage: emulator\.sh COMMAND/);
});
