import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import {
  cpSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, renameSync, rmSync,
  symlinkSync,
} from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('../..', import.meta.url));

let folder;
before(() => {
  folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-build-'));
});
after(() => rmSync(folder, { recursive: true }));

const run = (command, args, options) =>
  spawnSync(command, args, { cwd: root, encoding: 'utf8', ...options });

/** This machine's modules of pkg-config but one. */
function hideModule(hidden) {
  const { stdout } = run('pkg-config', ['--variable', 'pc_path', 'pkg-config']);
  const kept = path.join(folder, `without-${hidden}`);
  mkdirSync(kept);
  // The first folder that has a module is the one that counts.
  for (const from of stdout.trim().split(':').reverse()) {
    let names = [];
    try {
      names = readdirSync(from);
    } catch {
      // It names some that are not there.
    }
    for (const name of names) {
      rmSync(path.join(kept, name), { force: true });
      if (name !== `${hidden}.pc`) {
        symlinkSync(path.join(from, name), path.join(kept, name));
      }
    }
  }
  return { ...process.env, PKG_CONFIG_LIBDIR: kept };
}

for (const [module, name] of [
  ['libpipewire-0.3', 'libpipewire-0.3-dev'], ['xrandr', 'libxrandr-dev'],
  ['nice', 'libnice-dev'],
]) {
  test(`without "${module}" a package is refused, a build is told`, () => {
    const env = hideModule(module);
    const packed = run('cmake', ['--preset', 'openh264-8', '-B',
      path.join(folder, `package-${module}`)], { env });
    assert.notEqual(packed.status, 0);
    assert.match(packed.stdout + packed.stderr,
      new RegExp(`(No package .|Package .)${module}.*(found|exist)`, "i"));
    const { status, stdout, stderr } = run(process.execPath,
      ['--input-type=module', '--eval', `
        const build = await import(${
  JSON.stringify(path.join(root, 'scripts/build.mjs'))});
        console.log(build.describeOmissions().join('\\n'));
        console.log(build.checkRequirements().length);`], { env });
    assert.equal(status, 0, stderr);
    const lines = stdout.trim().split('\n');
    assert.match(lines[1], new RegExp(`files of "${module}" are missing`));
    assert.ok(lines[2].includes(name), lines[2]);
    assert.equal(lines.at(-1), '0');
  });
}

// CMake refuses to configure a folder that another one was made for.
test('a checkout that was moved or copied is built anew', () => {
  const first = path.join(folder, 'first');
  for (const name of ['scripts', 'lib', 'package.json', 'package-lock.json']) {
    cpSync(path.join(root, name), path.join(first, name), { recursive: true });
  }
  symlinkSync(path.join(root, 'node_modules'), path.join(first, 'node_modules'));
  cpSync(path.join(root, 'tests/support/small_project'), first,
    { recursive: true });
  const build = (place) => {
    const { status, output } = ((result) => ({ status: result.status,
      output: result.stdout + result.stderr }))(
      run(process.execPath, ['scripts/build.mjs'], { cwd: place }));
    assert.equal(status, 0, output);
    return readFileSync(path.join(place, 'build/release/place'), 'utf8').trim();
  };
  assert.equal(build(first), first);
  const copy = path.join(folder, 'copy');
  cpSync(first, copy, { recursive: true, verbatimSymlinks: true });
  assert.equal(build(copy), copy);
  assert.equal(build(first), first);
  const moved = path.join(folder, 'moved');
  renameSync(first, moved);
  assert.equal(build(moved), moved);
});
