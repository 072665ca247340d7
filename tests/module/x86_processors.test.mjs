// The unit tests of what is written in vector instructions, on processors that
// have fewer of them than this machine may have.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { test } from 'node:test';
import { built } from '../support/built.mjs';
import { collectText } from '../support/processes.mjs';

const routines = '*ScreenConversion*:*AreaScaling*:*PixelRoutines*';
const elements = '*ScreenConverter*:*ScreenScaler*';

async function runUnitTests(processor, filter) {
  const child = spawn('qemu-x86_64-static',
    ['-cpu', processor, built('unit_tests'), `--gtest_filter=${filter}`],
    { stdio: ['ignore', 'pipe', 'pipe'] });
  const stdout = collectText(child.stdout);
  const stderr = collectText(child.stderr);
  const code = await new Promise((resolve, reject) => {
    child.once('error', reject);
    child.once('close', resolve);
  });
  const text = stdout.text + stderr.text;
  assert.equal(code, 0, text.slice(-4000));
  // The vectors of each kind, in whose names it stands.
  return new Set([...text.matchAll(/ OK .*\/([A-Z0-9]+)_\d+ /g)]
    .map(([, kind]) => kind));
}

for (const [processor, kinds] of [
  ['max', ['AVX2', 'SSE4', 'SSSE3']],
  ['Nehalem', ['SSE4', 'SSSE3']],
  ['core2duo', ['SSSE3']],
]) {
  test(`a processor "${processor}" converts and scales in ${kinds}`,
    async () => {
      const found = await runUnitTests(processor, `${routines}:${elements}`);
      // Later releases of the vectors' library know SSE2 too.
      found.delete('SSE2');
      assert.deepEqual([...found].sort(), [...kinds].sort());
    });
}

test('a processor with none of these does the same', async () => {
  await runUnitTests('qemu64,-ssse3', routines);
});
