import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { readdirSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

const run = promisify(execFile);
const root = fileURLToPath(new URL('../..', import.meta.url));
const folder = path.join(root, 'tests/fuzz');

const subjects = readdirSync(folder)
  .filter((name) => name.endsWith('_fuzz.cc'))
  .map((name) => name.replace('_fuzz.cc', ''));

test('there are fuzzers, each with saved inputs', () => {
  assert.ok(subjects.length > 0);
  assert.deepEqual(readdirSync(path.join(folder, 'corpus')).sort(),
    subjects.toSorted());
});

for (const subject of subjects) {
  test(`the saved inputs of ${subject} break no rule`, async () => {
    const inputs = path.join(folder, 'corpus', subject);
    const files = readdirSync(inputs).map((name) => path.join(inputs, name));
    const { stdout } = await run(
      path.join(root, 'build/release/tests/fuzz', `fuzz_${subject}`), files,
      { timeout: 60_000 });
    assert.ok(files.length > 0);
    assert.equal(stdout, `${files.length} inputs\n`);
  });
}
