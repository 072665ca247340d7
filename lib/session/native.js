'use strict';

const { CaptureError } = require('./errors.js');

/** The native module, loaded when a capture is first asked for. */
function loadNative() {
  try {
    return require('../../index.js');
  } catch (error) {
    throw new CaptureError('ERR_CAPTURE_LOAD', error.message, { cause: error });
  }
}

module.exports = { loadNative };
