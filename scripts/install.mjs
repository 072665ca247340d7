// What npm runs when the package is installed: makes sure that there is a
// module that loads, by a build on this machine when that is what it takes.
//
// It never fails. A library that is missing can be installed later, and then
// nothing has to be done again; whoever loads the module before that is told
// what is missing, by the loader in the same words as here.
import { spawnSync } from 'node:child_process';
import process from 'node:process';

import nativeFiles from '../lib/native_files.js';
import { build, checkRequirements, describeProblems } from './build.mjs';

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

function main() {
  // Whoever works on the module builds it when that is wanted.
  if (isCheckout()) return;
  const problem = loadProblem();
  if (problem === null) return;
  const problems = checkRequirements();
  if (problems.length > 0) {
    console.error([problem, '', 'Nor can the module be built here:',
      ...describeProblems(problems),
      `Install either, and run "${buildCommand()}" for a build.`].join('\n'));
    return;
  }
  console.error('linux-capture-addon: the module that the package brings ' +
    'does not load here, so it is built');
  try {
    build(undefined, { options: ['-DLINUX_CAPTURE_TESTS=OFF'] });
  } catch (error) {
    console.error(`${error.message}\n${problem}`);
    return;
  }
  const remaining = loadProblem();
  if (remaining !== null) console.error(remaining);
}

main();
