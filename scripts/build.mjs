// Configures and builds a preset, release by default.
//
//   node scripts/build.mjs [--preset NAME] [target...]
//
// The default targets are the module and its programs; "all" are all.
import { spawnSync } from 'node:child_process';
import { existsSync, readFileSync, realpathSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { availableParallelism } from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

import nativeFiles from '../lib/native_files.js';
import systemPackages from '../lib/system_packages.js';
import { findCommand, pkgConfig } from './packages.mjs';

const { buildPhrase } = nativeFiles;
const { installSentence, list, namesOf, packagesOfModule } = systemPackages;
const require = createRequire(import.meta.url);

const root = fileURLToPath(new URL('..', import.meta.url));

const minimumNode = '20.0.0';
const minimumCMake = '3.21';
const defaultTargets = ['linux_capture_addon', 'programs'];
const modules = Object.entries(list.modules)
  .map(([module, entry]) => ({ module, ...entry }));
const requiredModules = modules.filter(({ isOptional }) => !isOptional);

// A build leaves out what needs these; a package brings all of it.
export const optionalModules = modules.filter(({ isOptional }) => isOptional);

/** True when the dotted version `actual` is `minimum` or later. */
export function isAtLeast(actual, minimum) {
  const a = actual.split('.').map(Number);
  const b = minimum.split('.').map(Number);
  for (let i = 0; i < b.length; i += 1) {
    const difference = (a[i] ?? 0) - b[i];
    if (difference !== 0) {
      return difference > 0;
    }
  }
  return true;
}

const tools = [
  ['cmake', namesOf('cmake')],
  ['ninja', namesOf('ninja')],
  ['pkg-config', namesOf('pkgConfig')],
];

function checkTools(problems) {
  if (!isAtLeast(process.versions.node, minimumNode)) {
    problems.push({
      text: `Node.js ${minimumNode} or later is needed; ` +
        `this is ${process.versions.node}`,
    });
  }
  for (const [tool, wanted] of tools) {
    if (findCommand(tool) === null) {
      problems.push({ text: `"${tool}" was not found in PATH`, wanted });
    }
  }
  if (findCommand(process.env.CXX || 'c++') === null) {
    problems.push({
      text: 'no C++ compiler ("c++", or the value of CXX) in PATH',
      wanted: namesOf('compiler'),
    });
  }
  if (findCommand('cmake') !== null) {
    const text = spawnSync('cmake', ['--version'], { encoding: 'utf8' }).stdout;
    const version = /version (\d+(?:\.\d+)*)/.exec(text ?? '')?.[1] ?? '0';
    if (!isAtLeast(version, minimumCMake)) {
      problems.push({
        text: `CMake ${minimumCMake} or later is needed; this is ${version}`,
      });
    }
  }
}

function checkModules(problems, modules) {
  // Without pkg-config nothing is known about them, so all may be missing.
  const canAsk = findCommand('pkg-config') !== null;
  for (const { module, minimum } of modules) {
    const version = canAsk ? pkgConfig('--modversion', module) : null;
    if (version === null) {
      problems.push({
        text: `the development files of "${module}" ` +
          `${canAsk ? 'are missing' : 'cannot be looked for'}`,
        wanted: packagesOfModule(module),
      });
    } else if (pkgConfig(`--atleast-version=${minimum}`, module) === null) {
      problems.push({
        text: `"${module}" ${minimum} or later is needed; this is ${version}`,
      });
    }
  }
}

/** Folder of an npm package that is needed here, or null. */
function packageFolder(name) {
  try {
    return path.dirname(require.resolve(`${name}/package.json`));
  } catch {
    return null;
  }
}

/** What keeps the module from being built here; one text for each thing. */
export function checkRequirements(furtherModules = []) {
  const problems = [];
  checkTools(problems);
  checkModules(problems, [...requiredModules, ...furtherModules]);
  if (['node-addon-api', 'node-api-headers'].some(
    (name) => packageFolder(name) === null)) {
    problems.push({ text: 'the npm packages are missing: run "npm ci"' });
  }
  return problems;
}

/** The same in lines for people, and how to install what is missing. */
export function describeProblems(problems) {
  const wanted = problems.map((entry) => entry.wanted).filter(Boolean);
  return [
    ...problems.map(({ text }) => `  - ${text}`),
    ...(wanted.length > 0 ? [installSentence(wanted)] : []),
  ];
}

/** What a build here would go without, in lines; none if nothing. */
export function describeOmissions() {
  const problems = [];
  checkModules(problems, optionalModules);
  return problems.length === 0 ? [] : [
    'This build goes without a part; "npx linux-capture doctor" says which:',
    ...describeProblems(problems), `Then run ${buildPhrase()} again.`];
}

function run(command, args, output) {
  const result = spawnSync(command, args, {
    cwd: root,
    stdio: ['ignore', output, output],
    encoding: 'utf8',
  });
  if (result.error) {
    throw result.error;
  }
  if (result.status !== 0) {
    process.stderr.write((result.stdout ?? '') + (result.stderr ?? ''));
    throw new Error(`"${[command, ...args].join(' ')}" failed`);
  }
}

/**
 * Removes a build whose folder has been moved or copied since: CMake refuses to
 * configure it, and its files name the old place.
 */
function forgetMovedBuild(folder) {
  const cache = path.join(folder, 'CMakeCache.txt');
  if (!existsSync(cache)) return;
  const value = (name) => new RegExp(`^${name}:INTERNAL=(.*)$`, 'm')
    .exec(readFileSync(cache, 'utf8'))?.[1];
  const isHere = (name, place) => {
    const told = value(name);
    return told !== undefined && existsSync(told) &&
      realpathSync(told) === realpathSync(place);
  };
  if (!isHere('CMAKE_HOME_DIRECTORY', root) ||
      !isHere('CMAKE_CACHEFILE_DIR', folder)) {
    rmSync(folder, { recursive: true });
  }
}

/**
 * Builds; `options` are further words for the configuration, and `name` is that
 * of the folder, the preset's own by default.
 */
export function build(targets = defaultTargets,
  { preset = 'release', name = preset, options = [] } = {}) {
  const folder = path.join(root, 'build', name);
  forgetMovedBuild(folder);
  // Every time, although Ninja follows changed CMake files: a library that was
  // installed since, GoogleTest for one, is seen only by a new configuration.
  run('cmake', ['--preset', preset, '-B', folder,
    `-DNODE_ADDON_API_DIR=${packageFolder('node-addon-api')}`,
    `-DNODE_API_HEADERS_DIR=${packageFolder('node-api-headers')}`,
    ...options], 'pipe');
  run('cmake', ['--build', folder,
    '--parallel', String(availableParallelism()), '--target', ...targets],
  // What npm packs is told on standard output, so this is not.
  process.stderr.fd);
}

function main(args) {
  const { values: { preset }, positionals: targets } = parseArgs({
    args,
    options: { preset: { type: 'string' } },
    allowPositionals: true,
  });
  const problems = checkRequirements();
  if (problems.length > 0) {
    console.error('The module cannot be built on this machine:');
    console.error(describeProblems(problems).join('\n'));
    console.error(
      'In a checkout "npm run setup" installs it on Debian and Ubuntu.');
    return 1;
  }
  build(targets.length > 0 ? targets : defaultTargets, { preset });
  for (const line of describeOmissions()) console.error(line);
  return 0;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  try {
    process.exitCode = main(process.argv.slice(2));
  } catch (error) {
    console.error(`build: ${error.message}`);
    process.exitCode = 1;
  }
}
