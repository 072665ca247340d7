import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('../..', import.meta.url));

const read = (file) =>
  readFileSync(new URL(`../../docs/api/${file}`, import.meta.url), 'utf8');

test('the API reference is what the declarations say', () => {
  const { status, stderr } = spawnSync(process.execPath,
    ['scripts/api_docs.mjs', '--check'], { cwd: root, encoding: 'utf8' });
  assert.equal(status, 0, stderr);
});

test('the API reference has every function of both entries', () => {
  const main = read('linux-capture-addon.md');
  for (const name of ['captureSetup', 'stopCapture', 'isCapturing',
    'resetStats', 'getStats', 'listWindows', 'listMonitors', 'forceKeyframe',
    'setBitrate', 'updateAudioTargets', 'duplicateFdFromPid',
    'onFragmentReady', 'onAudioSamples', 'onCaptureLifecycle']) {
    assert.match(main, new RegExp(`^### ${name}\\(\\)$`, 'm'), name);
  }
  const session = read('linux-capture-addon/session.md');
  for (const name of ['startCapture', 'listTargets']) {
    assert.match(session, new RegExp(`^### ${name}\\(\\)$`, 'm'), name);
  }
});
