'use strict';

// Preloaded where the module and the programs of another preset than release
// are under test: whoever asks where they lie is told their folder.
const path = require('node:path');
const process = require('node:process');

const nativeFiles = require('../../lib/native_files.js');

const preset = process.env.LINUX_CAPTURE_PRESET;
if (preset) {
  const folder = path.join(nativeFiles.packageFolder, 'build', preset);
  nativeFiles.nativeFolder = () => folder;
  nativeFiles.moduleFiles = () =>
    [path.join(folder, 'linux_capture_addon.node')];
}
