'use strict';

const { loadNativeModule } = require('./lib/load.js');

module.exports = loadNativeModule();

// Never runs: it only tells Node's scan of CommonJS modules which names an
// ECMAScript module may import from here.
0 && (module.exports = {
  captureSetup: 0,
  stopCapture: 0,
  isCapturing: 0,
  resetStats: 0,
  getStats: 0,
  listWindows: 0,
  listMonitors: 0,
  forceKeyframe: 0,
  setBitrate: 0,
  updateAudioTargets: 0,
  duplicateFdFromPid: 0,
  onFragmentReady: 0,
  onAudioSamples: 0,
  onCaptureLifecycle: 0,
});
