import assert from 'node:assert/strict';
import {
  chmodSync, copyFileSync, mkdirSync, mkdtempSync, readdirSync, renameSync,
  rmSync, statSync, writeFileSync,
} from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import {
  functionNames, makeConsumer, packDependencies, packProject, packageName, root,
  runProgram,
} from '../support/packed.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const require = createRequire(import.meta.url);
const { createPackageWithOptions, extractAll } = require('@electron/asar');

// Uses the module, and a program beside it.
const probe = `
const { listTargets } = require('${packageName}/session');
const count = Object.keys(require('${packageName}')).length;
listTargets({ only: 'x11' }).then(({ monitors }) =>
  console.log(count + ' ' + monitors.length));
`;
const answer = `${functionNames.length} 1`;

let folder;
let files;
let xvfb;
before(async () => {
  folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-layouts-'));
  // Another user looks into it too.
  chmodSync(folder, 0o755);
  files = {
    [packageName]: packProject(folder).file,
    ...Object.fromEntries(packDependencies(folder).map((file) =>
      [path.basename(file).replace(/-\d.*/, ''), file])),
  };
  xvfb = await startXvfb();
});
after(async () => {
  await xvfb?.stop();
  rmSync(folder, { recursive: true });
});

/** A project that takes every package from its file; without a compiler. */
function makeProject(name, manifest = () => ({})) {
  const consumer = makeConsumer(path.join(folder, name));
  const from = Object.fromEntries(
    Object.entries(files).map(([key, file]) => [key, `file:${file}`]));
  writeFileSync(path.join(consumer.home, 'package.json'), JSON.stringify({
    name: 'consumer', version: '1.0.0', private: true,
    dependencies: { [packageName]: from[packageName] }, ...manifest(from),
  }));
  writeFileSync(path.join(consumer.home, 'probe.cjs'), probe);
  Object.assign(consumer.environment, {
    DISPLAY: xvfb.display, HOME: path.join(folder, name),
  });
  return consumer;
}

function succeed({ status, output }) {
  assert.equal(status, 0, output);
  return output;
}

function assertWorks({ home, run }, command = ['node'], file = 'probe.cjs') {
  const [name, ...args] = [...command, path.resolve(home, file)];
  const { stdout, stderr } = run(name, args);
  assert.equal(stdout.trim(), answer, stderr);
}

const npmOptions = ['--offline', '--no-audit', '--no-fund'];

// pnpm keeps packages beside each other and links to them.
test('pnpm', () => {
  const consumer = makeProject('pnpm', (from) => ({
    pnpm: { overrides: from },
  }));
  succeed(consumer.run('node', [path.join(root, 'node_modules/pnpm/bin/pnpm.cjs'),
    'install', '--offline', `--store-dir=${path.join(folder, 'store')}`]));
  assertWorks(consumer);
});

test('yarn, with a folder of modules', () => {
  const consumer = makeProject('yarn', (from) => ({ resolutions: from }));
  succeed(consumer.run('node', [path.join(root, 'node_modules/yarn/bin/yarn.js'),
    'install', '--offline', '--non-interactive',
    `--cache-folder=${path.join(folder, 'cache')}`]));
  assertWorks(consumer);
});

// Packages stay in archives there, but for those that ask not to.
test('yarn, with packages in archives', () => {
  const consumer = makeProject('berry', (from) => ({ resolutions: from }));
  Object.assign(consumer.environment, {
    YARN_ENABLE_NETWORK: '0', YARN_ENABLE_TELEMETRY: '0',
    YARN_ENABLE_GLOBAL_CACHE: '0', YARN_ENABLE_IMMUTABLE_INSTALLS: '0',
  });
  writeFileSync(path.join(consumer.home, 'yarn.lock'), '');
  const yarn = ['node', path.join(root,
    'node_modules/@yarnpkg/cli-dist/bin/yarn.js')];
  succeed(consumer.run(yarn[0], [yarn[1], 'install']));
  assertWorks(consumer, [...yarn, 'node']);
});

test('a workspace whose packages share one folder of modules', () => {
  const consumer = makeProject('workspace', (from) => ({
    dependencies: {}, workspaces: ['packages/*'], overrides: {
      ...from, [packageName]: undefined },
  }));
  const member = path.join(consumer.home, 'packages/member');
  mkdirSync(member, { recursive: true });
  writeFileSync(path.join(member, 'package.json'), JSON.stringify({
    name: 'member', version: '1.0.0',
    dependencies: { [packageName]: `file:${files[packageName]}` },
  }));
  writeFileSync(path.join(member, 'probe.cjs'), probe);
  succeed(consumer.run('npm', ['install', ...npmOptions]));
  assertWorks(consumer, ['node'], 'packages/member/probe.cjs');
  succeed(runProgram('npx', ['--no', 'linux-capture', '--', '--help'],
    { cwd: member, env: consumer.environment }));
});

/** One project for what comes after it was installed. */
function installed(name, options = []) {
  const consumer = makeProject(name, (from) => ({
    overrides: { ...from, [packageName]: undefined },
  }));
  succeed(consumer.run('npm', ['install', ...npmOptions, ...options]));
  return consumer;
}

test('an installation without scripts, moved to another folder', () => {
  const consumer = installed('plain', ['--ignore-scripts']);
  assertWorks(consumer);
  const moved = path.join(folder, 'moved');
  renameSync(consumer.home, moved);
  const { stdout, stderr } = runProgram('node', ['probe.cjs'],
    { cwd: moved, env: consumer.environment });
  assert.equal(stdout.trim(), answer, stderr);
});

test('an installation that its user can only read', () => {
  const consumer = installed('read-only');
  const all = readdirSync(consumer.home, { recursive: true })
    .map((name) => path.join(consumer.home, name));
  for (const name of [consumer.home, ...all]) {
    chmodSync(name, statSync(name).mode & 0o555 | 0o444);
  }
  // Root can write everywhere, and may have a Node.js that is its own.
  const user = process.getuid() === 0 ? { uid: 65534, gid: 65534 } : {};
  const node = path.join(folder, 'node');
  copyFileSync(process.execPath, node);
  const { stdout, stderr } = runProgram(node, ['probe.cjs'],
    { cwd: consumer.home, env: consumer.environment, ...user });
  for (const name of [consumer.home, ...all]) {
    chmodSync(name, statSync(name).mode | 0o700);
  }
  assert.equal(stdout.trim(), answer, stderr);
});

// What Electron shows of an archive is a folder without what lies beside it.
test('an archive of an application, with the native files beside it',
  async () => {
    const consumer = installed('archive');
    const archive = path.join(folder, 'resources', 'app.asar');
    await createPackageWithOptions(consumer.home, archive,
      { unpackDir: `node_modules/${packageName}/prebuilds` });
    const beside = `${archive}.unpacked`;
    assert.ok(readdirSync(beside, { recursive: true })
      .some((name) => name.endsWith('.node')));
    const seen = path.join(folder, 'seen', 'app.asar');
    extractAll(archive, seen);
    renameSync(beside, `${seen}.unpacked`);
    rmSync(path.join(seen, 'node_modules', packageName, 'prebuilds'),
      { recursive: true });
    const { stdout, stderr } = runProgram('node', ['probe.cjs'],
      { cwd: seen, env: consumer.environment });
    assert.equal(stdout.trim(), answer, stderr);
  });
