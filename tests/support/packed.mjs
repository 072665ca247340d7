import { spawnSync } from 'node:child_process';
import {
  accessSync, constants, mkdirSync, mkdtempSync, readFileSync, realpathSync,
  rmSync, symlinkSync, writeFileSync,
} from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before } from 'node:test';
import { fileURLToPath } from 'node:url';

export const root = fileURLToPath(new URL('../..', import.meta.url));
export const packageName = 'linux-capture-addon';
export const prebuilt = `prebuilds/linux-${process.arch}`;
export const openh264Versions = [7, 8];
export const moduleFiles = openh264Versions.map((version) =>
  `${prebuilt}/openh264-${version}/linux_capture_addon.node`);

export const functionNames = [
  'captureSetup', 'stopCapture', 'isCapturing', 'resetStats', 'getStats',
  'listWindows', 'listMonitors', 'forceKeyframe', 'setBitrate',
  'updateAudioTargets', 'duplicateFdFromPid', 'onFragmentReady',
  'onAudioSamples', 'onCaptureLifecycle',
];

/** Runs a program to its end; `output` is what it printed, both ways. */
export function runProgram(command, args, options = {}) {
  const { status, signal, stdout, stderr, error } = spawnSync(command, args, {
    encoding: 'utf8', timeout: 300_000, ...options,
  });
  if (error) throw error;
  return { status, signal, stdout, stderr, output: stdout + stderr };
}

function succeed(command, args, options) {
  const run = runProgram(command, args, options);
  if (run.status !== 0) {
    throw new Error(`${command} ${args.join(' ')} failed:\n${run.output}`);
  }
  return run;
}

/** The full path of a program of this machine. */
export function programOfMachine(name) {
  for (const folder of process.env.PATH.split(path.delimiter)) {
    try {
      accessSync(path.join(folder, name), constants.X_OK);
      return path.join(folder, name);
    } catch {
      // Not in this folder.
    }
  }
  throw new Error(`${name} is not in PATH`);
}

/** Packs this project as it would be published; the file's path. */
export function packProject(folder) {
  const { stdout } = succeed('npm',
    ['pack', '--json', '--pack-destination', folder],
    // It builds a module for each version of OpenH264 and each processor.
    { cwd: root, timeout: 3_600_000 });
  const [{ filename, files }] =
    JSON.parse(stdout.slice(stdout.indexOf('[\n')));
  return { file: path.join(folder, filename), files };
}

/**
 * Packs the npm packages that it needs to run, from this checkout's own
 * node_modules, so that an installation asks for nothing from elsewhere.
 */
export function packDependencies(folder) {
  const { stdout } = succeed('npm',
    ['ls', '--omit=dev', '--all', '--parseable'], { cwd: root });
  return stdout.trim().split('\n').filter((name) =>
    name.includes('node_modules')).map((dependency) => {
    const packed = succeed('npm', ['pack', '--json', '--ignore-scripts',
      '--pack-destination', folder, dependency], { cwd: root });
    return path.join(folder, JSON.parse(packed.stdout)[0].filename);
  });
}

/**
 * An empty project to install into. Its environment has npm and what npm
 * itself starts, but neither a compiler nor any other build tool.
 */
export function makeConsumer(folder) {
  const programs = path.join(folder, 'programs');
  const home = path.join(folder, 'project');
  mkdirSync(programs, { recursive: true });
  mkdirSync(home);
  writeFileSync(path.join(home, 'package.json'),
    '{ "name": "consumer", "private": true }\n');
  for (const name of ['node', 'npm', 'npx', 'sh', 'env', 'ldd']) {
    symlinkSync(realpathSync(programOfMachine(name)),
      path.join(programs, name));
  }
  const environment = { ...process.env, PATH: programs };
  // A test runner's own reporting and npm's settings must not leak.
  for (const name of Object.keys(environment)) {
    if (/^npm_(?!config_(registry|cache|https?_proxy|cafile))/i.test(name) ||
        name === 'NODE_TEST_CONTEXT' || name === 'DISPLAY') {
      delete environment[name];
    }
  }
  const installed = path.join(home, 'node_modules', packageName);
  return {
    home,
    installed,
    environment,
    install: (files) => runProgram('npm', ['install', '--offline',
      '--no-audit', '--no-fund', '--foreground-scripts', ...files],
    { cwd: home, env: environment }),
    /** Runs a text as a module, or as a script, inside of the project. */
    evaluate: (text, type = 'module', extra = {}) =>
      runProgram(process.execPath, [`--input-type=${type}`, '--eval', text],
        { cwd: home, env: { ...environment, ...extra } }),
    run: (command, args, extra = {}) => runProgram(command, args,
      { cwd: home, env: { ...environment, ...extra } }),
  };
}

/**
 * Gives the calling test file the packed project, installed in an empty one.
 * The fields of the returned object are filled before the first test runs.
 */
export function useInstalledPackage() {
  const context = {};
  before(() => {
    context.folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-package-'));
    context.packed = packProject(context.folder);
    context.consumer = makeConsumer(path.join(context.folder, 'consumer'));
    context.installation = context.consumer.install(
      [context.packed.file, ...packDependencies(context.folder)]);
  });
  after(() => rmSync(context.folder, { recursive: true }));
  return context;
}

/** Replaces texts in a binary by others that are as long. */
export function replaceInBinary(file, replacements) {
  const bytes = readFileSync(file);
  for (const [from, to] of replacements) {
    const position = bytes.indexOf(`${from}\0`);
    if (position === -1 || from.length !== to.length) {
      throw new Error(`${from} in ${file} cannot be replaced by ${to}`);
    }
    bytes.write(to, position, 'latin1');
  }
  writeFileSync(file, bytes);
}

export const absentLibraries = ['libxcb.so.9', 'libX11.so.9'];

/** Makes the installed modules ask for versions that exist nowhere. */
export function damageModules(installed) {
  for (const file of moduleFiles) {
    replaceInBinary(path.join(installed, file), [
      ['libxcb.so.1', absentLibraries[0]],
      ['libX11.so.6', absentLibraries[1]],
    ]);
  }
}

/** Runs again what npm runs at an installation, which may be a whole build. */
export const installAgain = (installed, environment) =>
  runProgram(process.execPath, ['scripts/install.mjs'],
    { cwd: installed, env: environment, timeout: 3_600_000 });
