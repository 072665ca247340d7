// Tests the package and the module on releases of Debian, each in root folders
// of its own, and writes what came of it into the table of docs/systems.md.
//
//   node scripts/test_matrix.mjs [--fresh] [--mirror URL] [--only PART]...
//     [--backports] [--processor arm64] [suite]...
//
// A suite is "bookworm", "trixie", "testing" (all three if none is named) or any
// other of Debian. The parts are "installed" (the packed package in a bare root,
// by the words of the README and of its own messages), "module" (a build, and
// the tests of what depends on the system's libraries), "unit" (the unit tests,
// which take longest to build) and, only where it is named, "desktops" (captures
// of the release's own compositors of GNOME and KDE, which need another GB). With
// --backports a release that has them takes PipeWire from its backports, in a
// root of its own; "installed" is left out. The root folders stay under
// ${XDG_CACHE_HOME:-~/.cache}/linux-capture-addon/matrix, up to 3 GB each; --fresh
// makes them anew. Needs root, or sudo to become it.
//
// Another processor than this machine's is emulated, which
// scripts/test_arm64.sh makes ready: what is tested is built here with the
// compiler for it, and of the module's tests those run that need no speed.
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

import { crossBuild, crossName } from './cross_build.mjs';
import { addRow, cellOf } from './matrix_table.mjs';
import { packagesOf } from './packages.mjs';

const root = fileURLToPath(new URL('..', import.meta.url));
const script = path.join(root, 'scripts/root.sh');
const table = path.join(root, 'docs/systems.md');
const cache = path.join(process.env.XDG_CACHE_HOME ||
  path.join(homedir(), '.cache'), 'linux-capture-addon/matrix');

// One Node.js of each line, so that the table has them all.
const nodeOfSuite = { bookworm: '20', trixie: '22', testing: '24' };

const defaultParts = ['installed', 'module', 'unit'];
const parts = [...defaultParts, 'desktops'];

// What a build in a root is tested with, by column of the table.
const groups = {
  x11: 'module:capture_monitor,capture_window,x11_faults',
  screenCast: 'module:pipewire_',
  hardware: 'module:hardware_text,hardware_pipeline',
};

// Those of them, and of the rest, that do not ask how fast it goes.
const emulatedGroups = {
  x11: 'module:capture_small',
  logic: 'module:capture_request,duplicate_fd,error_codes,export_table,' +
    'launch_failures,load_without,statistics_defaults,visible_text',
  command: 'module:command_line,command_doctor',
};

const foreign = 'arm64';
const isForeign = (processor) => processor !== process.arch;

// KWin 6, of Debian 13 on, casts only what a graphics card has drawn, and GNOME's
// portal from 48 on finds no display beside a Mutter without a screen.
const desktopsOf = (major) => major <= 12 ? 'desktops' : 'desktops:mutter';

// PipeWire itself and what has to fit it.
const backported = 'pipewire* libpipewire* libspa* gstreamer1.0-pipewire ' +
  'wireplumber libwireplumber*';

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
  const plugin = path.join(folder, 'libgstnvcodec.so');
  if (!existsSync(plugin)) return null;
  const bytes = readFileSync(plugin);
  return ['cabac', 'repeat-sequence-header'].every(
    (name) => bytes.includes(`\0${name}\0`));
}

// Testing has none.
const versionIn = (folder) => /^VERSION_ID="?([^"\n]+)/m.exec(
  readFileSync(path.join(folder, 'etc/os-release'), 'utf8'));

function usePipeWireOfBackports() {
  const [line, name] = /^deb \S+ ([a-z]+) main$/m.exec(
    readFileSync('/etc/apt/sources.list', 'utf8'));
  writeFileSync('/etc/apt/sources.list.d/backports.list',
    `${line.replace(name, `${name}-backports`)}\n`);
  writeFileSync('/etc/apt/preferences.d/backports', `Package: ${backported}\n` +
    `Pin: release n=${name}-backports\nPin-Priority: 600\n`);
}

function testInside({ only, backports, built: isBuilt }) {
  if (backports) usePipeWireOfBackports();
  const hasDesktops = only.includes('desktops');
  if (!isBuilt) {
    succeed('bash', ['scripts/setup.sh', 'build', 'runtime',
      ...only.includes('module') || only.includes('unit') ? ['test'] : [],
      ...hasDesktops ? ['desktops'] : []]);
  }
  const make = (...targets) => isBuilt ||
    succeed(process.execPath, ['scripts/build.mjs', ...targets]);
  const counts = {};
  if (only.includes('module')) {
    make('linux_capture_addon', 'programs', 'test_helpers');
    for (const [name, suites] of
      Object.entries(isBuilt ? emulatedGroups : groups)) {
      counts[name] = runSuites([suites]);
    }
  }
  if (only.includes('unit')) {
    make('unit_tests');
    counts.unit = runSuites(['unit:release']);
  }
  if (hasDesktops) {
    make('linux_capture_addon', 'programs', 'desktop_helpers', 'fake_portal');
    const [, major = Infinity] = versionIn('/') ?? [];
    counts.desktops = runSuites([desktopsOf(Number(major))]);
  }
  const version = (name) =>
    outputOf('pkg-config', ['--modversion', name]).trim();
  const facts = {
    counts,
    hasHardwareProperties: only.includes('module')
      ? hasHardwareProperties(version('gstreamer-1.0')) : undefined,
    openh264: version('openh264'),
    pipewire: version('libpipewire-0.3'),
    gstreamer: version('gstreamer-1.0'),
  };
  writeFileSync(path.join(root, factsFile), JSON.stringify(facts));
}

// ---- Outside ---------------------------------------------------------------

/** What the folders of a suite and a processor are called after. */
const nameOf = (name, processor) =>
  (isForeign(processor) ? `${name}-${processor}` : name);

/** The file of a Node.js of this line: this process's own, or one of npm's. */
function nodeOf(major = process.versions.node.split('.')[0], processor) {
  if (!isForeign(processor) && process.versions.node.startsWith(`${major}.`)) {
    return process.execPath;
  }
  const folder = path.join(cache, nameOf(`node-${major}`, processor));
  const file = path.join(folder, 'package/bin/node');
  if (existsSync(file)) return file;
  mkdirSync(folder, { recursive: true });
  const [{ filename }] = JSON.parse(outputOf('npm', ['pack', '--json',
    '--pack-destination', folder, `node-linux-${processor}@${major}`]));
  succeed('tar', ['-xzf', path.join(folder, filename), '-C', folder]);
  return file;
}

function makeBare(suite, { fresh, mirror, processor }) {
  const folder = path.join(cache, `${nameOf(suite, processor)}-bare`);
  if (fresh) rmSync(folder, { recursive: true, force: true });
  if (!existsSync(folder)) {
    console.log(`test:matrix: making a root folder of Debian ${suite}`);
    succeed('bash', [script, 'make', suite, folder, ...(mirror ? [mirror] : [])],
      { env: { ...process.env, ...isForeign(processor) &&
        { LINUX_CAPTURE_PROCESSOR: processor } } });
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
function testInstalled(bare, node, processor) {
  return runSuites(['clean-root'], { env: { ...process.env,
    LINUX_CAPTURE_BARE_ROOT: bare, LINUX_CAPTURE_NODE: node,
    LINUX_CAPTURE_PROCESSOR: processor } });
}

/**
 * A root of another processor with the libraries that are built against there,
 * their headers, and what the tests start.
 */
function makeSysroot(suite, bare, { fresh, processor }) {
  const folder = path.join(cache, nameOf(suite, processor));
  const stamp = path.join(folder, 'packages');
  const names = [...packagesOf(['arm64Root']).keys()].join(' ');
  if (fresh) rmSync(folder, { recursive: true, force: true });
  if (!existsSync(folder)) succeed('cp', ['-a', bare, folder]);
  if (!existsSync(stamp) || readFileSync(stamp, 'utf8') !== names) {
    console.log(`test:matrix: installing packages in ${folder}`);
    const node = nodeOf(nodeOfSuite[suite], processor);
    const options = { env: { ...process.env, LINUX_CAPTURE_NODE: node } };
    for (const words of ['update -q',
      `install -y -q --no-install-recommends ${names}`]) {
      outputOf('bash', [script, 'enter', folder, '/', 'apt-get',
        ...words.split(' ')], options);
    }
    writeFileSync(stamp, names);
  }
  return folder;
}

/** Puts what this machine has built where the tests in a root look for it. */
function copyBuilt(from, project) {
  const built = path.join(project, 'build/release');
  rmSync(path.join(project, 'build'), { recursive: true, force: true });
  mkdirSync(built, { recursive: true });
  for (const entry of readdirSync(from, { withFileTypes: true })) {
    if (!entry.isFile() || /^\.|\.(a|json|ninja|txt|cmake)$/.test(entry.name)) continue;
    copyFileSync(path.join(from, entry.name), path.join(built, entry.name));
  }
  // All JavaScript, but for one program that is not started there.
  rmSync(path.join(project, 'node_modules'), { recursive: true, force: true });
  succeed('cp', ['-a', path.join(root, 'node_modules'), project]);
}

/** Builds for a root of another processor, and copies what came of it there. */
function buildOutside(folder, only) {
  const targets = [
    ...only.includes('module')
      ? ['linux_capture_addon', 'programs', 'test_helpers'] : [],
    ...only.includes('unit') ? ['unit_tests'] : [],
  ];
  const preset = 'release';
  crossBuild(targets, { preset, sysroot: folder });
  copyBuilt(path.join(root, 'build', crossName(preset)),
    path.join(folder, 'project'));
}

/** What a build in a root of its own came to, or null if it failed. */
function testBuilt(suite, bare, node, { fresh, only, backports, processor }) {
  const folder = path.join(cache,
    nameOf(suite, processor) + (backports ? '-backports' : ''));
  const project = path.join(folder, 'project');
  if (isForeign(processor)) {
    makeSysroot(suite, bare, { processor });
  } else {
    if (fresh) rmSync(folder, { recursive: true, force: true });
    if (!existsSync(folder)) succeed('cp', ['-a', bare, folder]);
  }
  copyProject(project);
  if (isForeign(processor)) buildOutside(folder, only);
  const facts = path.join(project, factsFile);
  rmSync(facts, { force: true });
  run('bash', [script, 'enter', folder, '/project', 'node',
    'scripts/test_matrix.mjs', '--inside',
    ...isForeign(processor) ? ['--built'] : [],
    ...backports ? ['--backports'] : [],
    ...only.flatMap((part) => ['--only', part])],
  { env: { ...process.env, LINUX_CAPTURE_NODE: node } });
  return existsSync(facts) ? JSON.parse(readFileSync(facts, 'utf8')) : null;
}

function titleOf(bare, { backports }) {
  const [, version] = versionIn(bare) ?? [];
  return `Debian ${version ?? 'testing'}${backports ? ' with backports' : ''}`;
}

/** Tests one release; the counts of everything, and its row in the table. */
function testSuite(suite, options) {
  const bare = makeBare(suite, options);
  const { processor } = options;
  const node = nodeOf(nodeOfSuite[suite], processor);
  const title = titleOf(bare, options);
  console.log(`\n=== ${title}, ${processor} ===`);
  const version = outputOf('bash', [script, 'enter', bare, '/', 'node',
    '--version'], { env: { ...process.env, LINUX_CAPTURE_NODE: node } });
  const row = { System: title, Processor: processor,
    'Node.js': version.trim().slice(1) };
  const all = [];
  if (options.only.includes('installed')) {
    const counts = testInstalled(bare, node, processor);
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
      'Captures GNOME and KDE': cellOf(counts?.desktops),
    });
  }
  writeFileSync(table, addRow(readFileSync(table, 'utf8'),
    { ...row, Run: isForeign(processor) ? 'emulated' : 'natively' }));
  return all;
}

/**
 * Builds the package's part for another processor, with the oldest libraries
 * that it is for.
 */
function prebuildForeign({ fresh, mirror, processor }) {
  const suite = 'bookworm';
  const bare = makeBare(suite, { fresh, mirror, processor });
  const sysroot = makeSysroot(suite, bare, { fresh, processor });
  succeed(process.execPath, ['scripts/prebuild.mjs', `--${foreign}`, sysroot]);
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
      only: { type: 'string', multiple: true, default: defaultParts },
      backports: { type: 'boolean', default: false },
      processor: { type: 'string', default: process.arch },
      prebuild: { type: 'boolean', default: false },
      inside: { type: 'boolean', default: false },
      built: { type: 'boolean', default: false },
    },
    allowPositionals: true,
  });
  if (values.inside) {
    testInside(values);
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
  const { processor } = values;
  if (isForeign(processor) && processor !== foreign) {
    throw new Error(`"${processor}" is not a processor that is emulated here`);
  }
  if (isForeign(processor) &&
      (values.backports || values.only.includes('desktops'))) {
    throw new Error('desktops and backports are not emulated');
  }
  if (values.backports) {
    values.only = values.only.filter((part) => part !== 'installed');
  }
  becomeRoot(args);
  succeed('bash', ['scripts/setup.sh', 'build', 'runtime', 'test', 'matrix',
    ...isForeign(processor) ? [foreign] : []]);
  if (isForeign(processor)) {
    prebuildForeign(values);
    values.fresh = false;
    if (values.prebuild) return 0;
  }
  if (values.only.includes('installed')) {
    succeed(process.execPath, ['scripts/build.mjs', 'scene']);
  }
  const suites =
    positionals.length > 0 ? positionals
      : isForeign(processor) ? ['bookworm'] : Object.keys(nodeOfSuite);
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
