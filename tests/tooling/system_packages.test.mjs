import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

const require = createRequire(import.meta.url);
const {
  familyOf, installSentence, list, openh264Version, packageNames,
  packagesOfElement,
  packagesOfLibrary, packagesOfPlugin,
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

// What "apt-cache policy" says in each.
for (const [system, text, openh264, glib] of [
  ['Debian 12', 'ID=debian\nVERSION_ID="12"\nVERSION_CODENAME=bookworm\n', 7,
    'libglib2.0-0'],
  ['Debian 13', 'ID=debian\nVERSION_ID="13"\nVERSION_CODENAME=trixie\n', 8,
    'libglib2.0-0t64'],
  ['Debian testing', 'ID=debian\nVERSION_CODENAME=forky\n', 8,
    'libglib2.0-0t64'],
  ['Ubuntu 22.04', 'ID=ubuntu\nVERSION_ID="22.04"\nVERSION_CODENAME=jammy\n',
    6, 'libglib2.0-0'],
  ['Ubuntu 24.04', 'ID=ubuntu\nVERSION_ID="24.04"\nVERSION_CODENAME=noble\n',
    7, 'libglib2.0-0t64'],
  ['Ubuntu 25.10', 'ID=ubuntu\nVERSION_ID="25.10"\nVERSION_CODENAME=questing\n',
    8, 'libglib2.0-0t64'],
  ['Linux Mint 22', 'ID=linuxmint\nID_LIKE="ubuntu debian"\n' +
    'VERSION_ID="22"\nVERSION_CODENAME=wilma\nUBUNTU_CODENAME=noble\n', 7,
  'libglib2.0-0t64'],
  ['LMDE 6', 'ID=linuxmint\nID_LIKE=debian\nVERSION_ID="6"\n' +
    'VERSION_CODENAME=faye\nDEBIAN_CODENAME=bookworm\n', 7, 'libglib2.0-0'],
  ['Fedora', 'ID=fedora\nVERSION_ID=42\n', null, 'glib2'],
]) {
  test(`${system} is told the names of its own release`, () => {
    const family = familyOf(text);
    assert.equal(openh264Version(family), openh264);
    assert.deepEqual(
      packageNames([packagesOfLibrary('libglib-2.0.so.0')], family), [glib]);
  });
}

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

/** The packages that brought a file of this name, for any processor. */
const ownersOf = (name) => spawnSync('dpkg-query', ['-S', `*/${name}`],
  { encoding: 'utf8' }).stdout.split('\n').map((line) => line.split(':')[0]);

const isOwned = (name, wanted) =>
  ownersOf(name).includes(packageNames([wanted])[0]);

test('the Debian packages of this machine hold what the list says', () => {
  for (const file of ['libgstximagesrc.so', 'libgstpipewire.so',
    'libgstapp.so', 'libgstvideorate.so', 'libgstaudiomixer.so',
    'libgstcoreelements.so', 'libgstopengl.so', 'libgstnvcodec.so']) {
    assert.ok(isOwned(file, packagesOfPlugin(file)), file);
  }
});

test('every library that the module and the programs need has its package',
  () => {
    const files = ['linux_capture_addon.node', 'linux-capture-portal',
      'linux-capture-select', 'linux-capture-shot', 'linux-capture-targets',
      'linux-capture-transport', 'linux-capture-opus'].map((name) =>
      path.join(release, name));
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
      assert.ok(isOwned(name, wanted), `${name}: ${ownersOf(name)}`);
    }
  });

test('what users need has a name in every family of systems', () => {
  for (const purpose of ['build', 'runtime']) {
    for (const key of list.purposes[purpose]) {
      assert.equal(list.packages[key].names.length, 3, key);
    }
  }
});

test('whatever the list refers to is in the list', () => {
  const keys = new Set(Object.keys(list.packages));
  const used = [
    ...Object.values(list.purposes).flat(),
    ...Object.values(list.modules).map((entry) => entry.package),
    ...[...list.libraries, ...list.elements].map(([, key]) => key),
    ...Object.values(list.plugins),
  ];
  for (const key of used) assert.ok(keys.has(key), key);
  for (const key of keys) assert.ok(used.includes(key), `${key} is unused`);
});

test('whatever is installed for a purpose can be looked for', () => {
  for (const key of Object.values(list.purposes).flat()) {
    assert.match(list.packages[key].probe ?? '',
      /^(command|module|plugin|file):/, key);
  }
});

// CMake takes a module by its name alone, and its version from the list.
test('no build file states a version of its own', () => {
  for (const file of ['CMakeLists.txt', 'programs/CMakeLists.txt',
    'bench/CMakeLists.txt']) {
    const text = readFileSync(new URL(`../../${file}`, import.meta.url),
      'utf8');
    assert.doesNotMatch(text, /[a-z0-9]>=\d/, file);
  }
});

test('the installation guide tells the versions of the list', () => {
  const text = readFileSync(new URL('../../docs/install.md', import.meta.url),
    'utf8');
  const rows = text.split('\n').filter((line) => line.startsWith('|'));
  for (const [module, entry] of Object.entries(list.modules)) {
    const [name] = list.packages[entry.package].names;
    assert.ok(rows.some((row) =>
      row.includes(`\`${name}\``) && row.includes(entry.minimum)), module);
  }
});

for (const words of ['no element "ximagesrc"', 'kein Element »ximagesrc«',
  'aucun élément « ximagesrc »']) {
  test(`a missing element gets its package: ${words}`, () => {
    const cause = Object.assign(new Error(words), { code: 'missing-element' });
    const error = fromNative(cause);
    assert.ok(error instanceof CaptureError);
    assert.equal(error.code, 'ERR_CAPTURE_MISSING_ELEMENT');
    assert.ok(error.message.startsWith(`${words}: Install `), error.message);
    assert.match(error.message, /plugins-good/);
    assert.equal(error.cause, cause);
  });
}

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
