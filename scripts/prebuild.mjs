// Puts the module, stripped, built for each version of OpenH264's interface, the
// programs and the libraries of a recording where the package brings them along.
// npm runs this before it packs.
import { spawnSync } from 'node:child_process';
import { readdirSync, rmSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';

import nativeFiles from '../lib/native_files.js';
import {
  build, checkRequirements, describeProblems, optionalModules,
} from './build.mjs';
import { bundleMedia } from './bundle_media.mjs';

const { packageFolder, prebuiltFolder } = nativeFiles;

/** The presets "openh264-7" and so on, one for each version of the headers. */
const presets = readdirSync(path.join(packageFolder, 'third_party/openh264'))
  .filter((name) => /^\d+$/.test(name)).map((name) => `openh264-${name}`);

/** Puts a part of what a preset has built into a folder of the package. */
function install(preset, component, folder) {
  const { status, stderr } = spawnSync('cmake', ['--install',
    path.join(packageFolder, 'build', preset), '--prefix', folder,
    '--component', component, '--strip'], { encoding: 'utf8' });
  if (status !== 0) throw new Error(stderr);
}

function main() {
  const problems = checkRequirements(optionalModules);
  if (problems.length > 0) {
    throw new Error(['nothing can be packed without a build here:',
      ...describeProblems(problems)].join('\n'));
  }
  rmSync(prebuiltFolder, { recursive: true, force: true });
  for (const preset of presets) {
    build(['linux_capture_addon'], { preset });
    install(preset, 'module', path.join(prebuiltFolder, preset));
  }
  // They know nothing of OpenH264, so one build fits all.
  build(['programs'], { preset: presets[0] });
  install(presets[0], 'programs', prebuiltFolder);
  bundleMedia(path.dirname(prebuiltFolder));
  // npm shows the names of what "npm pack" made on standard output.
  console.error(`${path.relative(packageFolder, prebuiltFolder)}: ${
    readdirSync(prebuiltFolder).join(' ')}`);
}

try {
  main();
} catch (error) {
  console.error(`prebuild: ${error.message}`);
  process.exitCode = 1;
}
