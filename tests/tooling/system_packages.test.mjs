import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { groups } from '../../scripts/packages.mjs';

const require = createRequire(import.meta.url);
const {
  familyOf, installSentence, packageNames, packages, packagesOfElement,
  packagesOfLibrary, packagesOfModule, packagesOfPlugin,
} = require('../../lib/system_packages.js');
const { CaptureError, fromNative } = require('../../lib/session/errors.js');

const { describeFailure } = require('../../lib/session/programs.js');

for (const [system, text, id] of [
  ['Debian', 'PRETTY_NAME="Debian GNU/Linux 12"\nID=debian\n', 'debian'],
  ['Ubuntu', 'ID_LIKE=debian\nID=ubuntu\nVERSION_ID="24.04"\n', 'ubuntu'],
  ['Linux Mint', 'ID=linuxmint\nID_LIKE="ubuntu debian"\n', 'ubuntu'],
  ['Fedora', 'NAME="Fedora Linux"\nID=fedora\n', 'fedora'],
  ['Rocky Linux', 'ID="rocky"\nID_LIKE="rhel centos fedora"\n', 'fedora'],
  ['Arch', 'NAME="Arch Linux"\nID=arch\n', 'arch'],
  ['Manjaro', 'ID=manjaro\nID_LIKE=arch\n', 'arch'],
]) {
  test(`${system} is recognised by its os-release`, () => {
    assert.equal(familyOf(text).id, id);
  });
}

test('another system, or none that says what it is, is not guessed', () => {
  assert.equal(familyOf('ID=opensuse-leap\nID_LIKE="suse opensuse"\n'), null);
  assert.equal(familyOf(''), null);
});

test('each system is told its own name and command', () => {
  const wanted = [packagesOfElement('pipewiresrc')];
  const sentence = (id) => installSentence(wanted, familyOf(`ID=${id}`));
  assert.equal(sentence('debian'),
    'Install with: apt install gstreamer1.0-pipewire');
  assert.equal(sentence('ubuntu'), sentence('debian'));
  assert.equal(sentence('fedora'),
    'Install with: dnf install pipewire-gstreamer');
  assert.equal(sentence('arch'),
    'Install with: pacman -S gst-plugin-pipewire');
});

test('a package that brings several things is named once', () => {
  const wanted = [packagesOfElement('appsink'), packagesOfElement('videorate')];
  assert.deepEqual(packageNames(wanted, familyOf('ID=arch')),
    ['gst-plugins-base']);
});

test('the Debian package of OpenH264 follows the version of its interface',
  () => {
    assert.equal(packagesOfLibrary('libopenh264.so.7')[0], 'libopenh264-7');
    assert.equal(packagesOfLibrary('libopenh264.so.8')[0], 'libopenh264-8');
  });

// The launch texts are written in these files, whose quoted words hold "!".
test('every element of the launch texts has a package', () => {
  const names = ['nvh264enc', 'nvautogpuh264enc'];
  for (const file of ['video_software/raw_pipeline_text.cc',
    'video_hardware/hardware_pipeline_text.cc', 'audio/audio_pipeline_text.cc'
  ]) {
    const text = readFileSync(new URL(`../../src/${file}`, import.meta.url),
      'utf8');
    const found = [...text.matchAll(
      /["! ]((?:ximage|pipewire)src|(?:video|audio|gl)[a-z]+|appsink|queue|tee) /g
    )].map(([, name]) => name);
    assert.ok(found.length >= 3, file);
    names.push(...found);
  }
  for (const name of names) {
    assert.notEqual(packagesOfElement(name), null, name);
  }
});

const release = fileURLToPath(
  new URL('../../build/release/', import.meta.url));

/** The package that brought a file of this name; "" if none did. */
const ownerOf = (name) => spawnSync('dpkg-query', ['-S', `*/${name}`],
  { encoding: 'utf8' }).stdout.split(':')[0];

// Debian 13 has added "t64" to some names; the shorter ones stand for them.
const isSamePackage = (owner, name) => [name, `${name}t64`].includes(owner);

test('the Debian packages of this machine hold what the list says', () => {
  for (const file of ['libgstximagesrc.so', 'libgstpipewire.so',
    'libgstapp.so', 'libgstvideorate.so', 'libgstaudiomixer.so',
    'libgstcoreelements.so', 'libgstopengl.so', 'libgstnvcodec.so']) {
    assert.ok(isSamePackage(ownerOf(file), packagesOfPlugin(file)[0]), file);
  }
});

test('every library that the module and the programs need has its package',
  () => {
    const files = ['linux_capture_addon.node', 'linux-capture-portal',
      'linux-capture-targets'].map((name) => path.join(release, name));
    const { stdout } =
      spawnSync('readelf', ['-d', ...files], { encoding: 'utf8' });
    const names = new Set([...stdout.matchAll(/NEEDED\).*\[([^\]]+)\]/g)]
      .map(([, name]) => name)
      // A system without the C library has no Node.js either.
      .filter((name) => !/^(libc|libm|ld-linux[^.]*)\./.test(name)));
    assert.ok(names.size > 8, [...names].join(' '));
    for (const name of names) {
      const wanted = packagesOfLibrary(name);
      assert.notEqual(wanted, null, name);
      assert.ok(isSamePackage(ownerOf(name), wanted[0]),
        `${name}: ${ownerOf(name)}`);
    }
  });

test('the list and what the setup installs agree', () => {
  const listed = new Set(
    Object.values(packages).map(([debianPackage]) => debianPackage));
  for (const name of [...Object.keys(groups.build),
    ...Object.keys(groups.runtime)]) {
    assert.ok(listed.has(name), name);
  }
  for (const probe of Object.values(groups.build)) {
    if (!probe.startsWith('module:')) continue;
    assert.notEqual(packagesOfModule(probe.slice('module:'.length)), null,
      probe);
  }
});

test('a missing element keeps GStreamer\'s words and gets its package', () => {
  const cause = new Error('no element "ximagesrc"');
  const error = fromNative(cause);
  assert.ok(error instanceof CaptureError);
  assert.equal(error.code, 'ERR_CAPTURE_MISSING_ELEMENT');
  assert.ok(error.message.startsWith('no element "ximagesrc": Install '),
    error.message);
  assert.match(error.message, /plugins-good/);
  assert.equal(error.cause, cause);
});

test('a program that lacks a library says which package brings it', () => {
  const text = describeFailure('linux-capture-portal', {
    code: 127, signal: null, error: undefined,
    stderr: 'linux-capture-portal: error while loading shared libraries: ' +
      'libgio-2.0.so.0: cannot open shared object file: No such file or ' +
      'directory\n',
  });
  assert.match(text, /libgio-2\.0\.so\.0/);
  assert.match(text, /\nInstall .*(libglib2\.0-0|glib2)/);
});
