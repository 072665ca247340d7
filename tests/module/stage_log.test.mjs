import assert from 'node:assert/strict';
import { existsSync, readFileSync, statSync } from 'node:fs';
import { test } from 'node:test';
import { runNode, stagesOf } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';

const logFile = '/tmp/linux-capture-debug.log';
const context = useDisplay({ width: 320, height: 180, scene: { fps: 10 } });

const setupStages = [
  'captureSetup:enter',
  'captureSetup:parsed backend=x11 audioMode=none branches=2 ' +
    'encoderRequirement=allow-degraded',
  'captureSetup:previous-capture-stopped',
  'captureSetup:gst-init-complete',
  'captureSetup:stats-reset-complete',
  'captureSetup:mutex-acquired',
  'captureSetup:openh264-init:begin',
  'captureSetup:openh264-video-pipeline-built',
  'captureSetup:video-pipeline-launch:begin',
  'captureSetup:video-pipeline-launch:complete',
  'captureSetup:video-callbacks-attached',
  'video pipeline:set-state-playing:begin',
  // 1 to 3: done, under way, or live; the video pipeline may answer any.
  /^video pipeline:set-state-playing:result=[123]$/,
  'video pipeline:get-state:begin',
  /^video pipeline:get-state:result=[123]:state=[A-Z]+:pending=[A-Z_]+$/,
  'captureSetup:capturing-flag-set',
  'captureSetup:bus-thread-started',
  'captureSetup:ready-emitted',
];

// What is put right at the launch depends on the libraries that are installed.
const isOfSequence = (stage) => !stage.startsWith('launch:');

function assertStages(stages, expected) {
  const seen = stages.filter(isOfSequence);
  assert.equal(seen.length, expected.length, seen.join('\n'));
  expected.forEach((stage, index) => {
    if (typeof stage === 'string') assert.equal(seen[index], stage);
    else assert.match(seen[index], stage);
  });
}

const setup = `addon.captureSetup(monitorRequest({
  sourceWidth: 320, sourceHeight: 180,
  branches: [{ width: 160, height: 90, fps: 15, bitrate: 500_000 }],
}));`;

test('a setup writes its stages in order and a stop writes none', async () => {
  const begin = Date.now();
  const child = await runNode(`${setup} addon.stopCapture();`,
    { display: context.display });
  assert.equal(child.code, 0, child.stderr);
  assertStages(stagesOf(child.stderr, child.pid), setupStages);

  const times = Array.from(
    child.stderr.matchAll(/ t=(\d+) stage=/g), ([, t]) => Number(t));
  assert.deepEqual(times, [...times].sort((a, b) => a - b));
  assert.ok(times[0] >= begin && times.at(-1) <= Date.now());
});

test('the same lines are appended to the log file', async () => {
  // What is there already may be of a process that had the same number.
  const before = existsSync(logFile) ? statSync(logFile).size : 0;
  const child = await runNode(`${setup} addon.stopCapture();`,
    { display: context.display });
  const ownLines = (text) => text.split('\n')
    .filter((line) => line.includes(` pid=${child.pid} `));
  const logged = ownLines(
    readFileSync(logFile).subarray(before).toString());
  assert.ok(logged.length >= setupStages.length);
  assert.deepEqual(logged, ownLines(child.stderr));
});

test('a second setup goes through the same stages again', async () => {
  const child = await runNode(`${setup} ${setup} addon.stopCapture();`,
    { display: context.display });
  assert.equal(child.code, 0, child.stderr);
  assertStages(stagesOf(child.stderr, child.pid),
    [...setupStages, ...setupStages]);
});

test('a request that cannot be read ends in the error stage', async () => {
  const child = await runNode(`
    try {
      addon.captureSetup(7);
    } catch (error) {
      console.log(error.name, error.message);
    }
  `);
  const message = 'captureSetup requires one canonical native capture DTO';
  assert.equal(child.stdout, `Error ${message}\n`);
  assert.deepEqual(stagesOf(child.stderr, child.pid),
    ['captureSetup:enter', `captureSetup:error:${message}`]);
});

test('a pipeline that cannot start ends in the error stage', async () => {
  const child = await runNode(`
    try {
      ${setup}
    } catch (error) {
      console.log(error.message);
    }
  `, { display: ':64321' });
  const message = child.stdout.trimEnd();
  assert.match(message, new RegExp(
    '^video pipeline (failed to enter PLAYING state|' +
    'reported GStreamer state-change failure)$'));
  const seen = stagesOf(child.stderr, child.pid);
  assertStages(seen.filter(isOfSequence).slice(0, 12),
    setupStages.slice(0, 12));
  assert.equal(seen.at(-1), `captureSetup:error:${message}`);
  assert.ok(!seen.includes('captureSetup:capturing-flag-set'));
});
