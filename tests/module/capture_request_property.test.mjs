import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { collectText } from '../support/processes.mjs';

const program =
  fileURLToPath(new URL('../support/capture_request_fuzz.mjs',
    import.meta.url));

const maxRuns = 3000;
const maxSeconds = 5;
// Always the same values here; "npm run test:fuzz" tries others.
const fixedSeed = 20_261_121;

/** Runs the program and tells how its process ended. */
async function fuzz(seed) {
  const child = spawn(process.execPath,
    [program, String(maxRuns), String(maxSeconds), String(seed)],
    { stdio: ['ignore', 'pipe', 'pipe'], timeout: 60_000 });
  const stdout = collectText(child.stdout);
  const stderr = collectText(child.stderr);
  const [code, signal] = await new Promise((resolve, reject) => {
    child.once('error', reject);
    child.once('close', (...end) => resolve(end));
  });
  return { code, signal, stdout: stdout.text, stderr: stderr.text };
}

test('any value is refused with a known message or its own error', async () => {
  const seed = Number(process.env.FUZZ_SEED ?? fixedSeed);
  const { code, signal, stdout, stderr } = await fuzz(seed);
  const told = `seed ${seed}: ${stdout}\n${stderr.slice(-2000)}`;
  assert.equal(signal, null, told);
  assert.equal(code, 0, told);
  const { values, requests, counts } = JSON.parse(stdout);
  assert.equal(values.failed, false, told);
  assert.equal(requests.failed, false, told);
  // The property must not hold merely because nothing much was tried.
  assert.ok(values.runs >= 100, told);
  assert.ok(requests.runs >= 100, told);
  assert.ok(counts.read > 0, told);
  assert.ok(counts.refused > 0, told);
  assert.ok(counts.own > 0, told);
});
