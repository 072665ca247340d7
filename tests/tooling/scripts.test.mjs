import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { isAtLeast } from '../../scripts/build.mjs';
import { publishProblems } from '../../scripts/check_publish.mjs';
import { missingPackages, packagesOf } from '../../scripts/packages.mjs';
import {
  addCounts, countGoogleTest, countTap, countTypeErrors, moduleTestFiles,
  reconcile,
} from '../../scripts/run_tests.mjs';

const root = fileURLToPath(new URL('../..', import.meta.url));

test('versions are compared number by number', () => {
  assert.ok(isAtLeast('1.22.0', '1.20'));
  assert.ok(isAtLeast('1.20', '1.20'));
  assert.ok(isAtLeast('3.100', '3.21'));
  assert.ok(!isAtLeast('1.9.9', '1.20'));
  assert.ok(!isAtLeast('1', '1.1'));
});

test('an unknown group of packages is refused by name', () => {
  assert.throws(() => packagesOf(['bild']), /unknown package group "bild"/);
});

test('no group of packages stands for all of them', () => {
  const all = packagesOf([]);
  for (const name of ['cmake', 'gstreamer1.0-pipewire', 'xvfb', 'clang-tidy']) {
    assert.ok(all.has(name), name);
  }
});

test('nothing that the tests need is missing here', () => {
  assert.deepEqual(missingPackages(['build', 'runtime', 'demo', 'test']), []);
});

test('the lock file names no host to download from', () => {
  const lock = JSON.parse(
    readFileSync(new URL('../../package-lock.json', import.meta.url)));
  for (const [name, entry] of Object.entries(lock.packages)) {
    assert.equal(entry.resolved, undefined, name);
  }
});

test('building without tools lists what is missing', () => {
  const run = spawnSync(process.execPath, ['scripts/build.mjs'], {
    cwd: root, encoding: 'utf8', env: { PATH: '/nowhere' },
  });
  assert.equal(run.status, 1);
  assert.match(run.stderr, /"cmake" was not found in PATH/);
  assert.match(run.stderr, /no C\+\+ compiler/);
  assert.match(run.stderr, /npm run setup/);
});

test('installing the npm packages of a checkout builds nothing', () => {
  const run = spawnSync(process.execPath, ['scripts/install.mjs'], {
    cwd: root, encoding: 'utf8', env: { PATH: '/nowhere' },
  });
  assert.equal(run.status, 0);
  assert.equal(run.stdout + run.stderr, '');
});

test('a GoogleTest report counts skipped and disabled tests as failed', () => {
  const report = { testsuites: [{ testsuite: [
    { result: 'COMPLETED' },
    { result: 'COMPLETED', failures: [{ failure: 'no' }] },
    { result: 'SKIPPED' },
    { status: 'NOTRUN', result: 'SUPPRESSED' },
  ] }] };
  assert.deepEqual(countGoogleTest(report), { passed: 1, failed: 3 });
});

test('a node:test report counts whatever did not pass as failed', () => {
  const text = '1..5\n# tests 5\n# suites 0\n# pass 2\n# fail 1\n' +
    '# cancelled 1\n# skipped 1\n# todo 0\n';
  assert.deepEqual(countTap(text), { passed: 2, failed: 3 });
  assert.equal(countTap('not ok'), null);
});

test('a file of types with an error counts as failed', () => {
  assert.deepEqual(
    countTypeErrors(['tests/a.test-d.ts', 'tests/b.test-d.ts'],
      'tests/b.test-d.ts(3,4): error TS2344: ...\n'),
    { passed: 1, failed: 1 });
});

test('module tests are chosen by how their names begin', () => {
  assert.deepEqual(moduleTestFiles('export_,x11_faults'), [
    'tests/module/export_table.test.mjs', 'tests/module/x11_faults.test.mjs',
  ]);
  const all = moduleTestFiles();
  assert.ok(all.includes('tests/tooling/scripts.test.mjs'));
  assert.ok(all.includes('tests/module/export_table.test.mjs'));
  assert.throws(() => moduleTestFiles('export_,gone'), /begins with "gone"/);
  assert.throws(() => moduleTestFiles(''), /begins with ""/);
});

test('another release is refused when its name is none', () => {
  for (const name of ['../etc', 'a/b', 'Testing', '']) {
    const run = spawnSync(process.execPath, ['scripts/test_matrix.mjs', name],
      { cwd: root, encoding: 'utf8' });
    assert.equal(run.status, 1);
    assert.match(run.stderr, /is not the name of a suite/);
  }
});

const published = Object.freeze({
  version: '1.2.3',
  repository: { type: 'git', url: 'git+https://code.example/x/capture.git' },
  homepage: 'https://code.example/x/capture#readme',
  bugs: { url: 'https://code.example/x/capture/issues' },
});

const processors = ['linux-arm64', 'linux-x64'];

test('a package that tells where it comes from may be published', () => {
  assert.deepEqual(
    publishProblems(published, '# Changelog\n\n## 1.2.3\n', processors), []);
});

test('a package is not published before its addresses are filled in', () => {
  for (const [field, empty] of [
    ['repository', { type: 'git', url: '' }], ['repository', undefined],
    ['homepage', ''], ['bugs', { url: 'soon' }],
  ]) {
    const [problem, ...others] =
      publishProblems({ ...published, [field]: empty }, '## 1.2.3', processors);
    assert.match(problem, new RegExp(`^"${field}`));
    assert.deepEqual(others, []);
  }
});

test('a package is not published without a word on what is new', () => {
  assert.match(publishProblems(published, '## 1.2.30', processors)[0],
    /## 1\.2\.3"/);
});

test('a package is not published for one processor alone', () => {
  const problems = publishProblems(published, '## 1.2.3', ['linux-x64']);
  assert.match(problems.join('\n'), /^prebuilds\/linux-arm64 is missing/);
});

test('npm asks for that before it publishes', () => {
  const read = (name) =>
    readFileSync(new URL(`../../${name}`, import.meta.url), 'utf8');
  const problems = publishProblems(
    JSON.parse(read('package.json')), read('CHANGELOG.md'), processors);
  const { status, stderr } = spawnSync('npm', ['run', 'prepublishOnly'],
    { cwd: root, encoding: 'utf8' });
  assert.equal(status, problems.length > 0 ? 1 : 0, stderr);
  for (const problem of problems) assert.ok(stderr.includes(problem), stderr);
});

test('a kind of tests that is not known is refused', () => {
  for (const args of [['tset'], ['browser', '--no-such']]) {
    const run = spawnSync('bash', ['scripts/test.sh', ...args],
      { cwd: root, encoding: 'utf8' });
    assert.equal(run.status, 1);
    assert.match(run.stdout + run.stderr, new RegExp(`unknown .*${args.at(-1)}`));
  }
});

test('a suite that ends badly fails even without a failed test', () => {
  assert.deepEqual(reconcile(null, true), { passed: 0, failed: 1 });
  assert.deepEqual(
    reconcile({ passed: 4, failed: 0 }, false), { passed: 4, failed: 1 });
  assert.deepEqual(
    reconcile({ passed: 0, failed: 0 }, true), { passed: 0, failed: 1 });
  assert.deepEqual(
    reconcile({ passed: 4, failed: 2 }, false), { passed: 4, failed: 2 });
  assert.deepEqual(addCounts([{ passed: 4, failed: 1 },
    { passed: 2, failed: 0 }]), { passed: 6, failed: 1 });
});
