'use strict';

const { spawn } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const process = require('node:process');

const {
  buildPhrase, bundledCause, bundledRemedy, isBundled, nativeFolder,
} = require('../native_files.js');
const { installSentence, packagesOfLibrary } =
  require('../system_packages.js');
const { CaptureError, abortError } = require('./errors.js');

/** The folder of a program that lies beside the module file. */
function programsFolder(name) {
  return process.env.LINUX_CAPTURE_PROGRAMS || nativeFolder(name);
}

/** Full path of such a program; throws when it was not built. */
function programFile(name) {
  const file = path.join(programsFolder(name), name);
  try {
    fs.accessSync(file, fs.constants.X_OK);
  } catch (error) {
    throw new CaptureError('ERR_CAPTURE_PROGRAM',
      `the program ${name} is not in ${programsFolder(name)}: ` +
        (isBundled() ? `${bundledCause}. ${bundledRemedy}`
          : `run ${buildPhrase()}`), { cause: error });
  }
  return file;
}

// What a program complains about is one line; libraries that print for years
// must not fill the memory.
const longestStderr = 65_536;

// How long a program may take for its own good-byes.
const closingLimitMs = 5000;

/** Bytes are not to be taken for text. */
function collectBytes(program) {
  const pieces = [];
  program.child.stdout.on('data', (piece) => pieces.push(piece));
  Object.defineProperty(program, 'stdout', { get: () => Buffer.concat(pieces) });
}

function collectOutput(program, { onLine, onData, isBinary }) {
  const { stdout, stderr } = program.child;
  stderr.setEncoding('utf8').on('data', (text) => {
    program.stderr = (program.stderr + text).slice(-longestStderr);
  });
  if (onData !== null) {
    stdout.on('data', onData);
    return;
  }
  if (isBinary) {
    collectBytes(program);
    return;
  }
  stdout.setEncoding('utf8').on('data', (text) => {
    program.stdout += text;
    if (onLine === null) return;
    const lines = program.stdout.split('\n');
    program.stdout = lines.pop();
    lines.forEach(onLine);
  });
}

/**
 * Starts a program beside the module. `input` is written to its standard input,
 * which stays open. `ended` resolves, never rejects, with its status, the
 * signal that ended it and the text of both outputs; with `onLine` each line of
 * the first goes there instead, with `onData` its bytes as they come, and what
 * `isBinary` is no text. It inherits
 * `descriptors`, numbered from 3 on.
 */
function startProgram(name, args,
  { input = '', onLine = null, onData = null, isBinary = false,
    descriptors = [] } = {}) {
  const child = spawn(programFile(name), args, {
    stdio: ['pipe', 'pipe', 'pipe', ...descriptors],
    // Ctrl-C in a terminal is for the host, which then ends the program.
    detached: true,
  });
  const program = { child, stdout: '', stderr: '' };
  child.stdin.on('error', () => {
    // It may end before its input does, which "ended" tells.
  });
  if (input !== '') child.stdin.write(input);
  collectOutput(program, { onLine, onData, isBinary });
  program.ended = new Promise((resolve) => {
    const settle = (code, signal, error) => resolve({
      code, signal, error, stdout: program.stdout, stderr: program.stderr,
    });
    child.once('error', (error) => settle(null, null, error));
    child.once('close', (code, signal) => settle(code, signal, undefined));
  });
  return program;
}

/**
 * Runs a program that needs nothing more to its end. `signal` kills it, and
 * throws: it holds nothing that would not be given back then.
 */
async function runProgram(name, args, { signal, ...options } = {}) {
  const { child, ended } = startProgram(name, args, options);
  child.stdin.end();
  const abort = () => child.kill('SIGKILL');
  signal?.addEventListener('abort', abort, { once: true });
  const result = await ended;
  signal?.removeEventListener('abort', abort);
  if (signal?.aborted) throw abortError(signal);
  return result;
}

/** Asks a program to end by closing its input; resolves when it has ended. */
async function endProgram({ child, ended }) {
  child.stdin.end();
  const insist = setTimeout(() => child.kill('SIGKILL'), closingLimitMs);
  insist.unref();
  await ended;
  clearTimeout(insist);
}

/** Adds the package of a library that the program could not start without. */
function withRemedy(said) {
  const library =
    /error while loading shared libraries: ([^\s:]+): cannot open/.exec(said);
  const wanted = library === null ? null : packagesOfLibrary(library[1]);
  return wanted === null ? said : `${said}\n${installSentence([wanted])}`;
}

/** What is known about the failure of a program, in one line. */
function describeFailure(name, { code, signal, error, stderr }) {
  const said = stderr.trim().replace(`${name}: `, '');
  if (said !== '') return withRemedy(said);
  if (error !== undefined) return `${name}: ${error.message}`;
  return `${name} ended with ${signal ?? `status ${code}`}`;
}

module.exports = { describeFailure, endProgram, runProgram, startProgram };
