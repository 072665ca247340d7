// Tests the package and the module on releases of Debian, each in root folders
// of its own, and writes what came of it into the table of docs/systems.md.
//
//   node scripts/test_matrix.mjs [--fresh] [--mirror URL] [--only PART]...
//     [suite]...
//
// A suite is "bookworm", "trixie", "testing" (all three if none is named) or any
// other of Debian. The parts are "installed" (the packed package in a bare root,
// by the words of the README and of its own messages), "module" (a build, and
// the tests of what depends on the system's libraries) and "unit" (the unit
// tests, which take longest to build). The root folders stay under ${XDG_CACHE_HOME:-~/.cache}/linux-capture-addon/matrix, up to 2 GB each;
// --fresh makes them anew. Needs root, or sudo to become it.
import { spawnSync } from 'node:child_process';
import {
  copyFileSync, existsSync, mkdirSync, mkdtempSync, readFileSync, readdirSync,
  rmSync, writeFileSync,
} from 'node:fs';
import { homedir, tmpdir } from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

import { addRow, cellOf } from './matrix_table.mjs';

const root = fileURLToPath(new URL('..', import.meta.url));
const script = path.join(root, 'scripts/root.sh');
const table = path.join(root, 'docs/systems.md');
const cache = path.join(process.env.XDG_CACHE_HOME ||
  path.join(homedir(), '.cache'), 'linux-capture-addon/matrix');

// One Node.js of each line, so that the table has them all.
const nodeOfSuite = { bookworm: '20', trixie: '22', testing: '24' };

const parts = ['installed', 'module', 'unit'];

// What a build in a root is tested with, by column of the table.
const groups = {
  x11: 'module:capture_monitor,capture_window,x11_faults',
  screenCast: 'module:pipewire_',
  hardware: 'module:hardware_text,hardware_pipeline',
};

const factsFile = 'build/matrix.json';

function run(command, args, options = {}) {
  const { status, error } = spawnSync(command, args,
    { cwd: root, stdio: ['ignore', 'inherit', 'inherit'], ...options });
  if (error) throw error;
  return status === 0;
}

function succeed(command, args, options) {
  if (!run(command, args, options)) {
    throw new Error(`"${[command, ...args].join(' ')}" failed`);
  }
}

function outputOf(command, args, options) {
  const { status, stdout } = spawnSync(command, args,
    { cwd: root, encoding: 'utf8', stdio: ['ignore', 'pipe', 'inherit'],
      maxBuffer: 2 ** 30, ...options });
  if (status !== 0) throw new Error(`"${command} ${args.join(' ')}" failed`);
  return stdout;
}

/** The counts that a run of tests left; one failure if it left none. */
function countsOf(file) {
  const [passed, failed] = existsSync(file)
    ? readFileSync(file, 'utf8').trim().split(' ').map(Number) : [0, 1];
  return { passed, failed };
}

/** Runs suites of tests; their counts. */
function runSuites(suites, options) {
  const folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-matrix-'));
  const results = path.join(folder, 'counts');
  run(process.execPath,
    ['scripts/run_tests.mjs', '--results', results, ...suites], options);
  const counts = countsOf(results);
  rmSync(folder, { recursive: true });
  return counts;
}

// ---- Inside of a root ------------------------------------------------------

// The properties that the hardware path asks for are told by the plugin itself:
// without a driver it offers no encoder that could be asked. Before 1.26 it has
// them for others of its encoders.
const hardwareMinor = 26;

function hasHardwareProperties(gstreamer) {
  const [major, minor] = gstreamer.split('.').map(Number);
  if (major === 1 && minor < hardwareMinor) return false;
  const folder = outputOf('pkg-config',
    ['--variable=pluginsdir', 'gstreamer-1.0']).trim();
  const bytes = readFileSync(path.join(folder, 'libgstnvcodec.so'));
  return ['cabac', 'repeat-sequence-header'].every(
    (name) => bytes.includes(`\0${name}\0`));
}

function testInside(only) {
  succeed('bash', ['scripts/setup.sh', 'build', 'runtime', 'test']);
  const counts = {};
  if (only.includes('module')) {
    succeed(process.execPath,
      ['scripts/build.mjs', 'linux_capture_addon', 'programs', 'test_helpers']);
    for (const [name, suites] of Object.entries(groups)) {
      counts[name] = runSuites([suites]);
    }
  }
  if (only.includes('unit')) {
    succeed(process.execPath, ['scripts/build.mjs', 'unit_tests']);
    counts.unit = runSuites(['unit:release']);
  }
  const version = (name) =>
    outputOf('pkg-config', ['--modversion', name]).trim();
  const facts = {
    counts,
    hasHardwareProperties: hasHardwareProperties(version('gstreamer-1.0')),
    openh264: version('openh264'),
    pipewire: version('libpipewire-0.3'),
    gstreamer: version('gstreamer-1.0'),
  };
  writeFileSync(path.join(root, factsFile), JSON.stringify(facts));
}

// ---- Outside ---------------------------------------------------------------

/** The file of a Node.js of this line: this process's own, or one of npm's. */
function nodeOf(major) {
  if (major === undefined || process.versions.node.startsWith(`${major}.`)) {
    return process.execPath;
  }
  const folder = path.join(cache, `node-${major}`);
  const file = path.join(folder, 'package/bin/node');
  if (existsSync(file)) return file;
  mkdirSync(folder, { recursive: true });
  const [{ filename }] = JSON.parse(outputOf('npm', ['pack', '--json',
    '--pack-destination', folder, `node-linux-${process.arch}@${major}`]));
  succeed('tar', ['-xzf', path.join(folder, filename), '-C', folder]);
  return file;
}

function makeBare(suite, { fresh, mirror }) {
  const folder = path.join(cache, `${suite}-bare`);
  if (fresh) rmSync(folder, { recursive: true, force: true });
  if (!existsSync(folder)) {
    console.log(`test:matrix: making a root folder of Debian ${suite}`);
    succeed('bash',
      [script, 'make', suite, folder, ...(mirror ? [mirror] : [])]);
  }
  return folder;
}

// What git would keep of the work tree as it is now; build results and installed
// packages of an earlier run stay, since they belong to that root.
function copyProject(folder) {
  mkdirSync(folder, { recursive: true });
  for (const name of readdirSync(folder)) {
    if (name === 'build' || name === 'node_modules') continue;
    rmSync(path.join(folder, name), { recursive: true });
  }
  // The owner is another user than root when sudo was needed.
  const files = outputOf('git', ['-c', `safe.directory=${path.resolve(root)}`,
    'ls-files', '-z', '--cached', '--others', '--exclude-standard'])
    .split('\0');
  for (const name of files) {
    const file = path.join(root, name);
    if (name === '' || !existsSync(file)) continue;
    const copy = path.join(folder, name);
    mkdirSync(path.dirname(copy), { recursive: true });
    copyFileSync(file, copy);
  }
}

/** The counts of the package in a bare root. */
function testInstalled(bare, node) {
  return runSuites(['clean-root'], { env: { ...process.env,
    LINUX_CAPTURE_BARE_ROOT: bare, LINUX_CAPTURE_NODE: node } });
}

/** What a build in a root of its own came to, or null if it failed. */
function testBuilt(suite, bare, node, { fresh, only }) {
  const folder = path.join(cache, suite);
  if (fresh) rmSync(folder, { recursive: true, force: true });
  if (!existsSync(folder)) succeed('cp', ['-a', bare, folder]);
  const project = path.join(folder, 'project');
  copyProject(project);
  const facts = path.join(project, factsFile);
  rmSync(facts, { force: true });
  run('bash', [script, 'enter', folder, '/project', 'node',
    'scripts/test_matrix.mjs', '--inside',
    ...only.flatMap((part) => ['--only', part])],
  { env: { ...process.env, LINUX_CAPTURE_NODE: node } });
  return existsSync(facts) ? JSON.parse(readFileSync(facts, 'utf8')) : null;
}

function titleOf(bare) {
  const text = readFileSync(path.join(bare, 'etc/os-release'), 'utf8');
  const [, version] = /^VERSION_ID="?([^"\n]+)/m.exec(text) ?? [];
  return `Debian ${version ?? 'testing'}`;
}

/** Tests one release; the counts of everything, and its row in the table. */
function testSuite(suite, options) {
  const bare = makeBare(suite, options);
  const node = nodeOf(nodeOfSuite[suite]);
  const title = titleOf(bare);
  console.log(`\n=== ${title} ===`);
  const row = { System: title, Processor: process.arch,
    'Node.js': outputOf(node, ['--version']).trim().slice(1) };
  const all = [];
  if (options.only.includes('installed')) {
    const counts = testInstalled(bare, node);
    row['Installs and loads'] = cellOf(counts);
    all.push(counts);
  }
  if (options.only.some((part) => part !== 'installed')) {
    const facts = testBuilt(suite, bare, node, options);
    const counts = facts?.counts;
    all.push(...(counts ? Object.values(counts) : [{ passed: 0, failed: 1 }]));
    Object.assign(row, {
      OpenH264: facts?.openh264, PipeWire: facts?.pipewire,
      GStreamer: facts?.gstreamer,
      'Captures X11': cellOf(counts?.x11),
      'Captures a screen cast, and sound': cellOf(counts?.screenCast),
      'Hardware text': facts?.hasHardwareProperties === false
        ? 'needs GStreamer 1.26' : cellOf(counts?.hardware),
      'Native logic': cellOf(counts?.unit),
    });
  }
  writeFileSync(table, addRow(readFileSync(table, 'utf8'),
    { ...row, Run: 'natively' }));
  return all;
}

function becomeRoot(args) {
  if (process.getuid() === 0) return;
  console.log('test:matrix: making and entering root folders needs root: sudo');
  const { status, error } = spawnSync('sudo', [
    '--preserve-env=http_proxy,https_proxy,no_proxy',
    // With the user's own cache, and the user's Node.js.
    'env', `PATH=${process.env.PATH}`,
    `XDG_CACHE_HOME=${path.dirname(path.dirname(cache))}`,
    process.execPath, fileURLToPath(import.meta.url), ...args],
  { stdio: 'inherit' });
  if (error) throw new Error(`there is no sudo; run this as root (${error})`);
  process.exit(status ?? 1);
}

function main(args) {
  const { values, positionals } = parseArgs({
    args,
    options: {
      fresh: { type: 'boolean', default: false },
      mirror: { type: 'string' },
      only: { type: 'string', multiple: true, default: parts },
      inside: { type: 'boolean', default: false },
    },
    allowPositionals: true,
  });
  if (values.inside) {
    testInside(values.only);
    return 0;
  }
  for (const name of positionals) {
    // It becomes part of a path that is removed.
    if (!/^[a-z]+$/.test(name)) {
      throw new Error(`"${name}" is not the name of a suite`);
    }
  }
  for (const part of values.only) {
    if (!parts.includes(part)) throw new Error(`there is no part "${part}"`);
  }
  becomeRoot(args);
  succeed('bash', ['scripts/setup.sh', 'build', 'runtime', 'test', 'matrix']);
  if (values.only.includes('installed')) {
    succeed(process.execPath, ['scripts/build.mjs', 'scene']);
  }
  const suites =
    positionals.length > 0 ? positionals : Object.keys(nodeOfSuite);
  const lines = suites.map((suite) => {
    const counts = testSuite(suite, values);
    const sum = (key) => counts.reduce((total, entry) => total + entry[key], 0);
    return { suite, passed: sum('passed'), failed: sum('failed') };
  });
  console.log('');
  for (const { suite, passed, failed } of lines) {
    console.log(`${suite}: ${passed} passed, ${failed} failed`);
  }
  return lines.every(({ failed }) => failed === 0) ? 0 : 1;
}

try {
  process.exitCode = main(process.argv.slice(2));
} catch (error) {
  console.error(`test:matrix: ${error.message}`);
  process.exitCode = 1;
}
