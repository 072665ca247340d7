'use strict';

const { CaptureError, captureErrorCodes } = require('./errors.js');
const { takeScreenshot } = require('./screenshot.js');
const { startCapture } = require('./start_capture.js');
const { listTargets } = require('./targets.js');

module.exports = {
  CaptureError, captureErrorCodes, listTargets, startCapture,
  takeScreenshot,
};
