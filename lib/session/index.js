'use strict';

const { CaptureError, captureErrorCodes } = require('./errors.js');
const { selectRegion } = require('./region.js');
const { takeScreenshot } = require('./screenshot.js');
const { startCapture } = require('./start_capture.js');
const { listTargets } = require('./targets.js');

module.exports = {
  CaptureError, captureErrorCodes, listTargets, selectRegion,
  startCapture, takeScreenshot,
};
