import assert from 'node:assert/strict';
import { cpSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { replaceInBinary, root } from '../support/packed.mjs';

const require = createRequire(import.meta.url);
const { composeLoadError, loadNativeModule, loadedModuleFile } =
  require('../../lib/load.js');
const { familyOf } = require('../../lib/system_packages.js');

const debian = familyOf('ID=debian\nVERSION_CODENAME=bookworm\n');

const thisHost = Object.freeze({
  platform: 'linux',
  architecture: process.arch,
  nodeVersion: process.versions.node,
  nodeApi: process.versions.napi,
  family: debian,
});

// Any file that starts like a shared library of this machine will do.
const sharedLibrary = process.execPath;

let folder;

before(() => {
  folder = mkdtempSync(path.join(tmpdir(), 'load-'));
});
after(() => rmSync(folder, { recursive: true }));

test('a module that was not built points to the build', () => {
  const file = path.join(folder, 'absent.node');
  assert.throws(() => loadNativeModule(file), (error) => {
    assert.equal(error.code, 'ERR_LINUX_CAPTURE_ADDON_LOAD');
    assert.ok(error.message.includes(file));
    assert.match(error.message, /has not been built/);
    assert.match(error.message, /npm run build/);
    assert.equal(error.cause.code, 'MODULE_NOT_FOUND');
    return true;
  });
});

test('a file that is no shared library says so', () => {
  const file = path.join(folder, 'text.node');
  writeFileSync(file, 'this is a text, and longer than a header');
  assert.throws(() => loadNativeModule(file), /is not a shared library/);
});

test('a module of another architecture names both architectures', () => {
  const file = path.join(folder, 'foreign.node');
  const header = Buffer.alloc(64);
  header.write('\x7fELF', 'latin1');
  header[4] = 2;
  header[5] = 1;
  header.writeUInt16LE(process.arch === 'arm64' ? 62 : 183, 18);
  writeFileSync(file, header);
  const foreign = process.arch === 'arm64' ? 'x64' : 'arm64';
  assert.throws(
    () => loadNativeModule(file),
    (error) =>
      error.message.includes(
        `the file is for ${foreign}, this process is ${process.arch}`));
});

for (const [library, debianPackage] of [
  ['libopenh264.so.7', 'libopenh264-7'],
  ['libgstreamer-1.0.so.0', 'libgstreamer1.0-0'],
  ['libgstvideo-1.0.so.0', 'libgstreamer-plugins-base1.0-0'],
  ['libX11.so.6', 'libx11-6'],
]) {
  test(`a missing ${library} names its package`, () => {
    const cause = new Error(
      `${library}: cannot open shared object file: No such file or directory`);
    const { message } = composeLoadError(sharedLibrary, cause, thisHost);
    assert.ok(message.includes(`the shared library ${library} is missing`));
    assert.ok(message.includes(`apt install ${debianPackage}\n`), message);
  });
}

test('the loader of musl is understood too', () => {
  const cause = new Error('Error loading shared library libX11.so.6: No such ' +
    'file or directory (needed by module.node)');
  const { message } = composeLoadError(sharedLibrary, cause, thisHost);
  assert.match(message, /the shared library libX11\.so\.6 is missing/);
});

test('a library that nobody lists is named as it is', () => {
  const cause = new Error(
    'libother.so.3: cannot open shared object file: No such file or directory');
  const { message } = composeLoadError(sharedLibrary, cause, thisHost);
  assert.match(message, /Install the package that brings libother\.so\.3/);
});

test('a system that nobody knows is told the names of all others', () => {
  const cause = new Error(
    'libX11.so.6: cannot open shared object file: No such file or directory');
  const { message } = composeLoadError(
    sharedLibrary, cause, { ...thisHost, family: null });
  assert.ok(message.includes(
    'libx11-6 (Debian, Ubuntu), libX11 (Fedora), libx11 (Arch)'), message);
});

test('symbols that are missing here ask for a new build', () => {
  const cause = new Error(
    `/lib/libc.so.6: version \`GLIBC_2.38' not found (required by x.node)`);
  const { message } = composeLoadError(sharedLibrary, cause, thisHost);
  assert.match(message, /built against other library versions/);
});

test('every cause is listed, not only the first', () => {
  const { message } = composeLoadError(
    path.join(folder, 'absent.node'), new Error('not found'),
    { platform: 'darwin', architecture: 'x64', nodeVersion: '18.20.0',
      nodeApi: '9' });
  assert.match(message, /this is darwin/);
  assert.match(message, /Node\.js 18\.20\.0 .* is too old/);
  assert.match(message, /has not been built/);
});

test('a file that does not fit leaves the module to the next', () => {
  const text = path.join(folder, 'next.node');
  writeFileSync(text, 'this is a text, and longer than a header');
  const next = path.join(folder, 'next.js');
  writeFileSync(next, 'exports.isNext = true;');
  assert.equal(loadNativeModule(text, next).isNext, true);
  assert.equal(loadedModuleFile(), next);
});

test('a module that refuses to start is not followed by another', () => {
  const first = path.join(folder, 'refuses.js');
  writeFileSync(first, 'throw new Error("GStreamer would not start")');
  assert.throws(
    () => loadNativeModule(first, path.join(folder, 'next.js')),
    ({ cause }) => cause.message === 'GStreamer would not start');
});

test('of files that do not fit the nearest tells what is missing', () => {
  const built = path.join(root, 'build/release/linux_capture_addon.node');
  const [far, near] = [['libxcb.so.1', 'libX11.so.6'], ['libX11.so.6']]
    .map((names) => {
      const file = path.join(folder, `lacks${names.length}.node`);
      cpSync(built, file);
      replaceInBinary(file,
        names.map((name) => [name, name.replace(/\d$/, '9')]));
      return file;
    });
  assert.throws(() => loadNativeModule(far, near),
    /from .*lacks1\.node\n.*the shared library libX11\.so\.9 is missing/);
});

for (const [system, missing, wanted] of [
  ['ID=ubuntu\nVERSION_ID="22.04"\nVERSION_CODENAME=jammy\n', 7, 6],
  ['ID=debian\nVERSION_ID="13"\nVERSION_CODENAME=trixie\n', 7, 8],
]) {
  test(`where OpenH264 is ${wanted} a build is asked for, not ${missing}`, () => {
    const { message } = composeLoadError(sharedLibrary, new Error(
      `libopenh264.so.${missing}: cannot open shared object file: No such ` +
      'file or directory'), { ...thisHost, family: familyOf(system) });
    assert.ok(message.includes(`has libopenh264.so.${wanted} instead`), message);
    assert.match(message, /apt install g\+\+ .*libopenh264-dev/);
    assert.doesNotMatch(message, new RegExp(`libopenh264-${missing}`));
  });
}

test('a failure of an unknown kind keeps the loader\'s own words', () => {
  const { message } = composeLoadError(
    sharedLibrary, new Error('something else'), thisHost);
  assert.match(message, /something else/);
});
