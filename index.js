'use strict';

const { loadNativeModule } = require('./lib/load.js');

module.exports = loadNativeModule();

// Never runs: it only tells Node's scan of CommonJS modules which names an
// ECMAScript module may import from here.
0 && (
  exports.captureSetup =
  exports.stopCapture =
  exports.isCapturing =
  exports.resetStats =
  exports.getStats =
  exports.listWindows =
  exports.listMonitors =
  exports.forceKeyframe =
  exports.setBitrate =
  exports.updateAudioTargets =
  exports.duplicateFdFromPid =
  exports.onFragmentReady =
  exports.onAudioSamples =
  exports.onCaptureLifecycle =
  0
);
