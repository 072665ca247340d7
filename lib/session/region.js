'use strict';

const { CaptureError } = require('./errors.js');
const { checkSignal, requireObject } = require('./options.js');
const { describeFailure, runProgram } = require('./programs.js');

const program = 'linux-capture-select';

const codesOfStatus = new Map([
  [3, 'ERR_CAPTURE_CANCELLED'],
  [4, 'ERR_CAPTURE_NO_DISPLAY'],
]);

/** Lets the user draw a rectangle on the X11 screen. */
async function selectRegion(options = {}) {
  const { signal } = requireObject(options, 'options', ['signal']);
  checkSignal(signal);
  const result = await runProgram(program, [], { signal });
  if (result.code !== 0) {
    throw new CaptureError(
      codesOfStatus.get(result.code) ?? 'ERR_CAPTURE_PROGRAM',
      describeFailure(program, result));
  }
  return JSON.parse(result.stdout);
}

module.exports = { selectRegion };
