import assert from 'node:assert/strict';
import { mkdirSync, readdirSync, symlinkSync } from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import {
  packageName, programOfMachine, runProgram, useInstalledPackage,
} from '../support/packed.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const context = useInstalledPackage();
let environment;
let xvfb;

// Every plugin of this machine but the one that reads X11.
before(async () => {
  const plugins = path.join(context.folder, 'plugins');
  mkdirSync(plugins);
  const { stdout } = runProgram(programOfMachine('pkg-config'),
    ['--variable=pluginsdir', 'gstreamer-1.0']);
  for (const name of readdirSync(stdout.trim())) {
    if (name === 'libgstximagesrc.so') continue;
    symlinkSync(path.join(stdout.trim(), name), path.join(plugins, name));
  }
  xvfb = await startXvfb();
  environment = {
    DISPLAY: xvfb.display,
    GST_PLUGIN_SYSTEM_PATH_1_0: plugins,
    GST_REGISTRY: path.join(context.folder, 'registry.bin'),
  };
});
after(() => xvfb?.stop());

const request = `{
  source: { backend: 'x11', kind: 'monitor', handle: null,
    geometry: { x: 0, y: 0, width: 64, height: 64 } },
  capture: { width: 64, height: 64, fps: 30, bitrate: 100000,
    minBitrate: 100000, maxBitrate: 100000, temporalLayerCount: 1,
    gopSize: 60, bFrames: 0, enableCABAC: false, lowLatencyMode: true,
    encoderRequirement: 'allow-degraded',
    topology: { mode: 'direct', branches: [] } },
  audio: { mode: 'none' } }`;

test('the module names an element in GStreamer\'s words alone', () => {
  const { stdout } = context.consumer.evaluate(
    `import { captureSetup } from '${packageName}';
    try { captureSetup(${request}); } catch (error) {
      console.log(error.message); }`, 'module', environment);
  assert.equal(stdout.trim(), 'no element "ximagesrc"');
});

test('the session names its package too', () => {
  const { stdout } = context.consumer.evaluate(
    `import { startCapture } from '${packageName}/session';
    await startCapture({ source: { type: 'monitor', geometry:
      { width: 64, height: 64 } } }).catch((error) =>
      console.log(error.code, error.message));`, 'module', environment);
  assert.match(stdout,
    /^ERR_CAPTURE_MISSING_ELEMENT no element "ximagesrc": Install .*good/);
});

test('the doctor names the plugin and its package', () => {
  const { stdout } = context.consumer.run('npx',
    ['--no', 'linux-capture', 'doctor'], environment);
  assert.match(stdout, /^Install.*plugins-good$/m);
  assert.match(stdout,
    /^no {2}Plugins for X11\n {6}GStreamer has no plugin ximagesrc\.$/m);
});
