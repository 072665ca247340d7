import assert from 'node:assert/strict';
import { test } from 'node:test';

import { useCleanRoot } from '../support/clean_root.mjs';
import { packageName } from '../support/packed.mjs';

// More rounds than there are things to install one after the other.
const mostRounds = 5;

const context = useCleanRoot();
const { inside } = context;

const doctor = () => {
  const { stdout } =
    inside('npx', '--no', 'linux-capture', 'doctor', '--json');
  return JSON.parse(stdout.slice(stdout.indexOf('{')));
};

/** Installs what a message says how to install. */
function follow(message) {
  const names = /apt install ([^\n]+)/.exec(message)?.[1].split(' ');
  assert.ok(names !== undefined, message);
  const { status, output } = inside(
    'apt-get', 'install', '-y', '-q', '--no-install-recommends', ...names);
  assert.equal(status, 0, output);
  return names;
}

test('a bare Debian lacks a compiler and all that the module needs', () => {
  assert.equal(inside('sh', '-c', 'command -v c++ cmake').status, 127);
  assert.equal(inside('sh', '-c', 'ls /usr/lib/*/libgst*').status, 2);
});

test('the installation succeeds there and says what is missing', () => {
  const { status, output } = inside('npm', 'install', '--offline',
    '--no-audit', '--no-fund', '--foreground-scripts',
    ...context.packages);
  assert.equal(status, 0, output);
  assert.match(output, /libopenh264\.so\.\d+/);
  assert.match(output, /apt install .*libopenh264-\d+/);
});

test('the packages that the loader names make the module load', () => {
  const load = () => inside('node', '-e',
    `try { console.log(Object.keys(require('${packageName}')).length); }
    catch (error) { console.log(error.message); }`).stdout.trim();
  const installed = [];
  let answer = load();
  for (let round = 0; round < mostRounds && answer !== '14'; round += 1) {
    installed.push(...follow(answer));
    answer = load();
  }
  assert.equal(answer, '14');
  assert.ok(installed.includes('libx11-6'), installed.join(' '));
});

test('the packages that the doctor names make it take a picture', () => {
  let report = doctor();
  const installed = [];
  for (let round = 0; round < mostRounds; round += 1) {
    const missing = report.checks.find(({ id, isUsable }) =>
      id.startsWith('elements-') && !isUsable);
    if (missing === undefined) break;
    installed.push(...follow(missing.remedy));
    report = doctor();
  }
  assert.ok(installed.includes('gstreamer1.0-plugins-good'),
    installed.join(' '));
  assert.equal(report.usable.x11, true, JSON.stringify(report, null, 2));
});

test('the programs start with the libraries that they name', () => {
  for (const [name, args, pattern] of [
    ['linux-capture-portal', ['--help'], /usage/i],
    ['linux-capture-targets', ['--x11'], /"monitors"/],
    ['linux-capture-shot', ['--help'], /usage/i],
    ['linux-capture-select', ['--help'], /usage/i],
  ]) {
    const program = `node_modules/${packageName}/prebuilds/linux-${
      context.processor}/${name}`;
    let { output } = inside(program, ...args);
    for (let round = 0; round < mostRounds &&
        /shared libraries/.test(output); round += 1) {
      follow(inside('node', '-e', `
        const { describeFailure } =
          require('./node_modules/${packageName}/lib/session/programs.js');
        console.log(describeFailure('${name}',
          { stderr: ${JSON.stringify(output)} }));`).stdout);
      ({ output } = inside(program, ...args));
    }
    assert.match(output, pattern);
  }
});
