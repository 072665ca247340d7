import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { readdirSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { promisify } from 'node:util';
import { built } from '../support/built.mjs';

const run = promisify(execFile);
const programs = readdirSync(built('.'))
  .filter((name) => /^linux-capture-[a-z]+$/.test(name));

test('there are six programs beside the module', () => {
  assert.deepEqual(programs.sort(), [
    'linux-capture-opus', 'linux-capture-portal', 'linux-capture-select',
    'linux-capture-shot', 'linux-capture-targets', 'linux-capture-transport',
  ]);
});

for (const name of programs) {
  test(`${name} tells its use and its version to a pipe`, async () => {
    const file = path.join(built('.'), name);
    const help = await run(file, ['--help']);
    assert.match(help.stdout, new RegExp(`^usage: ${name}\\b`, 'i'));
    assert.equal(help.stderr, '');
    const version = await run(file, ['--version']);
    assert.match(version.stdout, new RegExp(`^${name} \\d+\\.\\d+\\.\\d+\n$`));
  });
}
