// What npm runs when the package is installed: makes sure that there is a
// module that loads, by a build on this machine when that is what it takes.
//
// An installation never fails by it. A library that is missing can be installed
// later, and then nothing has to be done again; whoever loads the module before
// that is told what is missing, by the loader in the same words as here. Only
// "npm rebuild", which asks for a build, fails without one: npm shows nothing of
// what a script says that succeeds.
import { spawnSync } from 'node:child_process';
import process from 'node:process';

import nativeFiles from '../lib/native_files.js';
import {
  build, checkRequirements, describeOmissions, describeProblems,
  optionalModules,
} from './build.mjs';

const { buildCommand, isCheckout } = nativeFiles;

const loadLimitMs = 60_000;

/** Why the module does not load, or null; a process of its own tries it. */
function loadProblem() {
  const loader = new URL('../index.js', import.meta.url).pathname;
  const { status, signal, stderr } = spawnSync(process.execPath, ['-e', `
    try {
      require(process.argv[1]);
    } catch (error) {
      console.error(error.message);
      process.exitCode = 1;
    }`, decodeURIComponent(loader)],
  { encoding: 'utf8', timeout: loadLimitMs });
  if (status === 0) return null;
  return stderr.trim() || `loading it ended with ${signal ?? status}`;
}

function fail(...lines) {
  console.error(lines.join('\n'));
  if (process.env.npm_command === 'rebuild') process.exitCode = 1;
}

function main() {
  // Whoever works on the module builds it when that is wanted.
  if (isCheckout()) return;
  const problem = loadProblem();
  if (problem === null) return;
  if (checkRequirements().length > 0) {
    fail(problem, '', 'Nor can the module be built here:',
      ...describeProblems(checkRequirements(optionalModules)),
      `Install either, and run "${buildCommand()}" for a build.`);
    return;
  }
  console.error('linux-capture-addon: the module that the package brings ' +
    'does not load here, so it is built');
  try {
    build(undefined, { options: ['-DLINUX_CAPTURE_TESTS=OFF'] });
  } catch (error) {
    fail(error.message, problem);
    return;
  }
  for (const line of describeOmissions()) console.error(line);
  const remaining = loadProblem();
  if (remaining !== null) fail(remaining);
}

main();
