import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import {
  mkdirSync, mkdtempSync, rmSync, symlinkSync, writeFileSync,
} from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { buildSync } from 'esbuild';

const root = fileURLToPath(new URL('../..', import.meta.url));

let folder;
before(() => {
  folder = mkdtempSync(path.join(tmpdir(), 'bundled-'));
  mkdirSync(path.join(folder, 'node_modules'));
  symlinkSync(root, path.join(folder, 'node_modules', 'linux-capture-addon'));
});
after(() => rmSync(folder, { recursive: true }));

/** Bundles a program and runs the result. */
function runBundled(text, format, options = {}) {
  const entry = path.join(folder, 'program.mjs');
  const outfile =
    path.join(folder, `bundle.${format === 'esm' ? 'mjs' : 'cjs'}`);
  writeFileSync(entry, text);
  // What bundles of ECMAScript need for any package that has require().
  const banner = { js: format === 'esm'
    ? 'import { createRequire } from \'node:module\';' +
      'const require = createRequire(import.meta.url);' : '' };
  buildSync({ entryPoints: [entry], outfile, bundle: true, format,
    platform: 'node', logLevel: 'error', banner, ...options });
  return spawnSync(process.execPath, [outfile],
    { cwd: folder, encoding: 'utf8' });
}

const useModule = `
import addon from 'linux-capture-addon';
console.log(typeof addon.captureSetup);
`;
const useSession = `
import session from 'linux-capture-addon/session';
session.startCapture({ source: { type: 'pipewire', fd: 0, nodeId: 1,
  width: 64, height: 64 } })
  .catch(({ code, message }) => console.log(code, message));
`;
const useProgram = `
import session from 'linux-capture-addon/session';
session.listTargets()
  .catch(({ code, message }) => console.log(code, message));
`;

const says = /bundler has taken linux-capture-addon out of its folder/;

for (const format of ['cjs', 'esm']) {
  test(`a module that was bundled (${format}) says so and what helps`, () => {
    const { status, stderr } = runBundled(useModule, format);
    assert.equal(status, 1);
    assert.match(stderr, says);
    assert.match(stderr, /Mark "linux-capture-addon" as external/);
    assert.doesNotMatch(stderr, /npm run build|npm rebuild/);
  });

  test(`so does a session (${format})`, () => {
    const { stdout, stderr } = runBundled(useSession, format);
    assert.match(stdout, /^ERR_CAPTURE_LOAD /, stderr);
    assert.match(stdout, says);
  });

  test(`and what starts a program (${format})`, () => {
    const { stdout, stderr } = runBundled(useProgram, format);
    assert.match(stdout, /^ERR_CAPTURE_PROGRAM /, stderr);
    assert.match(stdout, says);
  });

  test(`a package that is marked external loads (${format})`, () => {
    const { status, stdout, stderr } = runBundled(useModule, format,
      { external: ['linux-capture-addon'] });
    assert.equal(status, 0, stderr);
    assert.equal(stdout.trim(), 'function');
  });
}
