// Puts the release build, stripped, and the libraries of a recording where the
// package brings them along. npm runs this before it packs.
import { spawnSync } from 'node:child_process';
import { readdirSync, rmSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';

import nativeFiles from '../lib/native_files.js';
import {
  build, checkRequirements, describeProblems, optionalModules,
} from './build.mjs';
import { bundleMedia } from './bundle_media.mjs';

const { builtFolder, packageFolder, prebuiltFolder } = nativeFiles;

function main() {
  const problems = checkRequirements(optionalModules);
  if (problems.length > 0) {
    throw new Error(['nothing can be packed without a build here:',
      ...describeProblems(problems)].join('\n'));
  }
  build();
  rmSync(prebuiltFolder, { recursive: true, force: true });
  const { status, stderr } = spawnSync('cmake', ['--install', builtFolder,
    '--prefix', prebuiltFolder, '--component', 'shipped', '--strip'],
  { encoding: 'utf8' });
  if (status !== 0) throw new Error(stderr);
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
