import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { before, test } from 'node:test';

import {
  absentLibraries, damageModules, installAgain, packageName,
  useInstalledPackage,
} from '../support/packed.mjs';

const { packageNames, packagesOfLibrary } =
  createRequire(import.meta.url)('../../lib/system_packages.js');

const context = useInstalledPackage();

before(() => damageModules(context.consumer.installed));

test('an installation says which libraries are missing and succeeds', () => {
  const { installed, environment } = context.consumer;
  const { status, stderr } = installAgain(installed, environment);
  assert.equal(status, 0);
  assert.match(stderr, /the shared libraries .* are missing/);
  for (const name of absentLibraries) assert.ok(stderr.includes(name), stderr);
  assert.match(stderr, /"cmake" was not found/);
  assert.match(stderr, /no C\+\+ compiler/);
  assert.match(stderr, /npm rebuild linux-capture-addon/);
});

// npm shows nothing of a script that succeeds.
test('a build that was asked for and fails is seen', () => {
  const { status, output } =
    context.consumer.run('npm', ['rebuild', packageName]);
  assert.notEqual(status, 0);
  for (const name of absentLibraries) assert.ok(output.includes(name), output);
  assert.match(output, /"cmake" was not found/);
  assert.match(output, /run "npm rebuild \S+ --foreground-scripts"/);
});

test('the loader names their packages in one message', () => {
  const { status, stderr } = context.consumer.evaluate(
    `try { require('${packageName}') } catch (error) {
      console.error(error.message); process.exitCode = 3; }`, 'commonjs');
  assert.equal(status, 3);
  assert.match(stderr, /^linux_capture_addon could not be loaded from /);
  for (const name of packageNames(absentLibraries.map(packagesOfLibrary))) {
    assert.ok(stderr.includes(name), `${name} in ${stderr}`);
  }
  assert.equal(stderr.match(/ Install /g).length, 1);
});

test('the session fails with a code of its own', () => {
  const { stdout } = context.consumer.evaluate(
    `import { startCapture } from '${packageName}/session';
    await startCapture({ source: { type: 'monitor', geometry:
      { width: 64, height: 64 } } }).catch((error) =>
      console.log(error.code, error.message.includes('libX11.so.9')));`);
  assert.equal(stdout.trim(), 'ERR_CAPTURE_LOAD true');
});

test('the doctor says the same as the loader', () => {
  const { status, stdout } = context.consumer.run('npx',
    ['--no', 'linux-capture', 'doctor']);
  assert.equal(status, 1);
  assert.match(stdout, /^no {2}Native module\n {6}linux_capture_addon could not/m);
  assert.match(stdout, /libxcb\.so\.9/);
});
