// Puts the module, stripped, built for each version of OpenH264's interface, the
// programs and the libraries of a recording where the package brings them along.
// npm runs this before it packs.
//
//   node scripts/prebuild.mjs [--arm64 ROOT]
//
// With --arm64 it is the part of 64-bit ARM, built with the libraries of a root
// folder of Debian for it. What npm packs from then on has that as well, built
// anew each time.
import { spawnSync } from 'node:child_process';
import { existsSync, readdirSync, rmSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { parseArgs } from 'node:util';

import nativeFiles from '../lib/native_files.js';
import { crossBuild, crossName, lastSysroot } from './cross_build.mjs';
import {
  build, checkRequirements, describeProblems, optionalModules,
} from './build.mjs';
import { bundleMedia } from './bundle_media.mjs';

const { packageFolder, prebuiltFolder } = nativeFiles;

/** The presets "openh264-7" and so on, one for each version of the headers. */
const presets = readdirSync(path.join(packageFolder, 'third_party/openh264'))
  .filter((name) => /^\d+$/.test(name)).map((name) => `openh264-${name}`);

const arm64Folder = path.join(path.dirname(prebuiltFolder), 'linux-arm64');

/** Puts a part of what was built into a folder of the package. */
function install(name, component, folder) {
  const { status, stderr } = spawnSync('cmake', ['--install',
    path.join(packageFolder, 'build', name), '--prefix', folder,
    '--component', component, '--strip'], { encoding: 'utf8' });
  if (status !== 0) throw new Error(stderr);
}

/**
 * Puts all of one processor's into `folder`, built by `make(targets, preset)` in
 * the folder that `nameOf(preset)` names.
 */
function prebuild(folder, nameOf, make) {
  rmSync(folder, { recursive: true, force: true });
  for (const preset of presets) {
    make(['linux_capture_addon'], preset);
    install(nameOf(preset), 'module', path.join(folder, preset));
  }
  // They know nothing of OpenH264, so one build fits all.
  make(['programs'], presets[0]);
  install(nameOf(presets[0]), 'programs', folder);
  // npm shows the names of what "npm pack" made on standard output.
  console.error(`${path.relative(packageFolder, folder)}: ${
    readdirSync(folder).join(' ')}`);
}

const prebuildArm64 = (sysroot) => prebuild(arm64Folder, crossName,
  (targets, preset) => crossBuild(targets, { preset, sysroot }));

/** Makes what was built for 64-bit ARM before as new as the rest. */
function renewArm64() {
  if (arm64Folder === prebuiltFolder || !existsSync(arm64Folder)) return;
  const sysroot = lastSysroot(presets[0]);
  if (sysroot !== null && existsSync(sysroot)) {
    prebuildArm64(sysroot);
    return;
  }
  rmSync(arm64Folder, { recursive: true });
  console.error(`${path.relative(packageFolder, arm64Folder)}: left out, since ` +
    'the root folder that it was built with is gone');
}

function main() {
  const { values: { arm64 } } =
    parseArgs({ options: { arm64: { type: 'string' } } });
  const problems = checkRequirements(optionalModules);
  if (problems.length > 0) {
    throw new Error(['nothing can be packed without a build here:',
      ...describeProblems(problems)].join('\n'));
  }
  if (arm64 !== undefined) {
    prebuildArm64(path.resolve(arm64));
    return;
  }
  prebuild(prebuiltFolder, (preset) => preset,
    (targets, preset) => build(targets, { preset }));
  renewArm64();
  bundleMedia(path.dirname(prebuiltFolder));
}

try {
  main();
} catch (error) {
  console.error(`prebuild: ${error.message}`);
  process.exitCode = 1;
}
