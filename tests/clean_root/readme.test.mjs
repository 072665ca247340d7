import assert from 'node:assert/strict';
import { readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { useCleanRoot } from '../support/clean_root.mjs';
import { probeFile } from '../support/command.mjs';
import { packageName, root } from '../support/packed.mjs';
import { connect, enter } from '../support/preview_client.mjs';
import { collectText, endHelper, waitForText } from
  '../support/processes.mjs';
import { startScene } from '../support/scene.mjs';
import { until } from '../support/until.mjs';

const context = useCleanRoot();
const { inside } = context;
const readme = readFileSync(path.join(root, 'README.md'), 'utf8');

/** The pictures of a file that the system has written. */
async function picturesOf(name) {
  const { video, complaints } = await probeFile(context.file(name));
  assert.equal(complaints, '');
  return Number(video[0].nb_read_packets);
}

test('the README installs, without a compiler', () => {
  assert.equal(inside('sh', '-c', 'command -v c++ cmake').status, 127);
  const [, npm, apt] =
    /^(npm install .*)\nsudo (apt install (?:.*\\\n)*.*)$/m.exec(readme);
  const { status, output } = inside(...npm.split(' ').flatMap((word) =>
    (word === packageName ? context.packages : [word])), '--offline');
  assert.equal(status, 0, output);
  // It names the releases that have the other one.
  const id = readFileSync(path.join(context.system, 'etc/os-release'), 'utf8');
  const [, others, instead, name] =
    /on\n(.*) with `([\w-]+)` in place of `([\w-]+)`/.exec(readme);
  const isOther = others.replace('\n', ' ').split(' and ').some((title) =>
    id.includes(title.replace('Debian ', 'Debian GNU/Linux ')));
  const words = apt.replace(name, isOther ? instead : name)
    .split(/[\s\\]+/);
  const installed = inside(...words, '-y', '-q', '--no-install-recommends');
  assert.equal(installed.status, 0, installed.output);
});

test('the doctor finds nothing to install for X11', () => {
  const { stdout } = inside('npx', '--no', 'linux-capture', 'doctor', '--json');
  const report = JSON.parse(stdout.slice(stdout.indexOf('{')));
  assert.equal(report.usable.x11, true, stdout);
  for (const { id, isUsable, detail } of report.checks) {
    if (/^(module|build|elements-.*|encoder-software)$/.test(id)) {
      assert.ok(isUsable, `${id}: ${detail}`);
    }
  }
});

test('a display is recorded into a file', async () => {
  const scene = await startScene({ display: context.xvfb.display, fps: 30 });
  const { status, output } = inside('npx', '--no', 'linux-capture', 'record',
    'out.mp4', '--duration', '0:04');
  await scene.stop();
  assert.equal(status, 0, output);
  assert.ok(await picturesOf('out.mp4') > 30);
});

test('the program captures, and ends', async () => {
  const [, program] = /^```js\n(\/\/ save\.mjs[\s\S]*?)^```$/m.exec(readme);
  writeFileSync(context.file('save.mjs'), program);
  const { status, output } = inside('node', 'save.mjs');
  assert.equal(status, 0, output);
  assert.ok(await picturesOf('screen.h264') > 30);
});

test('the preview shows pictures', async () => {
  const child = context.start('npx', '--no', 'linux-capture', 'preview',
    '--branch', '320x180@15');
  const output = collectText(child.stdout);
  const errors = collectText(child.stderr);
  try {
    const [address] = await waitForText(child, output, /http:\S+/,
      'the address of the preview', 60_000);
    const client = await connect(await enter(address));
    client.send({ type: 'watch', branches: [0], sound: false });
    await until(() => client.pictures.length > 10, 'pictures in the page');
    client.socket.close();
  } catch (error) {
    throw new Error(`${error.message}\n${errors.text}`, { cause: error });
  } finally {
    await endHelper(child, 'SIGKILL');
  }
});

// The names of the packages are checked by what knows them best.
test('every name that the messages may give is one of this release', () => {
  const { stdout } = inside('node', '-e', `
    const packages = require(
      './node_modules/${packageName}/lib/system_packages.js');
    const { build, runtime } = packages.list.purposes;
    console.log(packages.packageNames([
      ...[...build, ...runtime].map(packages.namesOf),
      ...['libgstreamer-1.0.so.0', 'libgstapp-1.0.so.0', 'libglib-2.0.so.0',
        'libX11.so.6', 'libxcb.so.1', 'libXext.so.6', 'libXrandr.so.2',
        'libpipewire-0.3.so.0', 'libstdc++.so.6', 'libgcc_s.so.1',
        'libopenh264.so.' + packages.openh264Version(),
      ].map(packages.packagesOfLibrary)]).join(' '));`);
  const names = stdout.trim().split(' ');
  assert.ok(names.length > 15, stdout);
  const { stdout: known } = inside('apt-cache', 'show', '--no-all-versions',
    ...names);
  for (const name of names) {
    assert.ok(known.includes(`Package: ${name}\n`), name);
  }
});
