'use strict';

const { CaptureError, abortError, argumentError } = require('./errors.js');
const { requireObject } = require('./options.js');
const { describeFailure, startProgram } = require('./programs.js');

const program = 'linux-capture-select';

const codesOfStatus = new Map([
  [3, 'ERR_CAPTURE_CANCELLED'],
  [4, 'ERR_CAPTURE_NO_DISPLAY'],
]);

/** Lets the user draw a rectangle on the X11 screen. */
async function selectRegion(options = {}) {
  const { signal } = requireObject(options, 'options', ['signal']);
  if (signal !== undefined && !(signal instanceof AbortSignal)) {
    throw argumentError('signal must be an AbortSignal');
  }
  if (signal?.aborted) throw abortError(signal);
  const run = startProgram(program, []);
  run.child.stdin.end();
  // The X server gives back what it has grabbed.
  const abort = () => run.child.kill('SIGKILL');
  signal?.addEventListener('abort', abort, { once: true });
  const result = await run.ended;
  signal?.removeEventListener('abort', abort);
  if (signal?.aborted) throw abortError(signal);
  if (result.code !== 0) {
    throw new CaptureError(
      codesOfStatus.get(result.code) ?? 'ERR_CAPTURE_PROGRAM',
      describeFailure(program, result));
  }
  return JSON.parse(result.stdout);
}

module.exports = { selectRegion };
