import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

const run = promisify(execFile);
const program =
  fileURLToPath(new URL('../support/publish_fuzz.mjs', import.meta.url));

const maxRuns = 2000;
const maxSeconds = 4;
// Always the same values here; "npm run test:fuzz" tries others.
const fixedSeed = 20_261_122;

test('whatever a server says of packets or answers, rules hold', async () => {
  const seed = process.env.FUZZ_SEED ?? String(fixedSeed);
  const { stdout } = await run(process.execPath,
    [program, String(maxRuns), String(maxSeconds), seed],
    { timeout: 60_000 });
  const results = Object.entries(JSON.parse(stdout));
  assert.deepEqual(results.map(([name]) => name),
    ['reports', 'sender', 'answers', 'frames']);
  for (const [name, { failed, runs }] of results) {
    assert.equal(failed, false, `${name}, seed ${seed}: ${stdout}`);
    assert.ok(runs >= 20, `${name}: ${stdout}`);
  }
});
