// Configures and builds the release preset.
//
//   node scripts/build.mjs [target...]     (default: the module and its programs)
//   node scripts/build.mjs all
import { spawnSync } from 'node:child_process';
import { existsSync } from 'node:fs';
import { availableParallelism } from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

import { findCommand, groups, pkgConfig } from './packages.mjs';

const root = fileURLToPath(new URL('..', import.meta.url));

const minimumNode = '20.0.0';
const minimumCMake = '3.21';
const defaultTargets = ['linux_capture_addon', 'programs'];
const requiredModules = [
  { module: 'gstreamer-1.0', minimum: '1.20' },
  { module: 'gstreamer-app-1.0', minimum: '1.20' },
  { module: 'gstreamer-video-1.0', minimum: '1.20' },
  { module: 'openh264', minimum: '2.2' },
  { module: 'x11', minimum: '1.7' },
  { module: 'xcb', minimum: '1.10' },
  { module: 'gio-unix-2.0', minimum: '2.66' },
];

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

function checkTools(problems) {
  if (!isAtLeast(process.versions.node, minimumNode)) {
    problems.push(
      `Node.js ${minimumNode} or later is needed; ` +
        `this is ${process.versions.node}`,
    );
  }
  for (const tool of ['cmake', 'ninja', 'pkg-config']) {
    if (findCommand(tool) === null) {
      problems.push(`"${tool}" was not found in PATH`);
    }
  }
  if (findCommand(process.env.CXX || 'c++') === null) {
    problems.push('no C++ compiler ("c++", or the value of CXX) in PATH');
  }
  if (findCommand('cmake') !== null) {
    const text = spawnSync('cmake', ['--version'], { encoding: 'utf8' }).stdout;
    const version = /version (\d+(?:\.\d+)*)/.exec(text ?? '')?.[1] ?? '0';
    if (!isAtLeast(version, minimumCMake)) {
      problems.push(
        `CMake ${minimumCMake} or later is needed; this is ${version}`,
      );
    }
  }
}

function checkModules(problems) {
  if (findCommand('pkg-config') === null) {
    return;
  }
  for (const { module, minimum } of requiredModules) {
    const version = pkgConfig('--modversion', module);
    if (version === null) {
      problems.push(`the development files of "${module}" are missing`);
    } else if (pkgConfig(`--atleast-version=${minimum}`, module) === null) {
      problems.push(
        `"${module}" ${minimum} or later is needed; this is ${version}`,
      );
    }
  }
}

function checkRequirements() {
  const problems = [];
  checkTools(problems);
  checkModules(problems);
  if (!existsSync(path.join(root, 'node_modules/node-addon-api/napi.h'))) {
    problems.push('the npm packages are missing: run "npm ci"');
  }
  return problems;
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

function main(targets) {
  const problems = checkRequirements();
  if (problems.length > 0) {
    console.error('The module cannot be built on this machine:');
    for (const problem of problems) {
      console.error(`  - ${problem}`);
    }
    console.error(
      '"npm run setup" installs what is missing on Debian and Ubuntu:\n  ' +
        Object.keys(groups.build).join(' '),
    );
    return 1;
  }
  // Every time, although Ninja follows changed CMake files: a library that was
  // installed since, GoogleTest for one, is seen only by a new configuration.
  run('cmake', ['--preset', 'release'], 'pipe');
  const build = ['--build', '--preset', 'release'];
  const parallel = ['--parallel', String(availableParallelism())];
  const goals = targets.length > 0 ? targets : defaultTargets;
  run('cmake', [...build, ...parallel, '--target', ...goals], 'inherit');
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
