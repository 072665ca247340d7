import assert from 'node:assert/strict';
import { afterEach, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { hasIdrSlice } from '../support/annex_b.mjs';
import { collect, monotonicUs, runCapture } from '../support/capture.mjs';
import { runNode } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { softwareBranchKeys, topLevelKeys } from
  '../support/statistics_keys.mjs';
import { until } from '../support/until.mjs';

useDisplay({ width: 320, height: 180, scene: { fps: 60 } });
afterEach(() => addon.stopCapture());

const source = { x: 8, y: 4, sourceWidth: 300, sourceHeight: 168 };
const oneBranch = monitorRequest({ ...source, width: 300, height: 168 });
const twoBranches = monitorRequest({
  ...source,
  width: 300,
  height: 168,
  branches: [{ width: 150, height: 84, fps: 15, bitrate: 500_000 }],
});

test('the counters of one branch account for every picture', async () => {
  const { packets } = await runCapture(
    oneBranch, { seconds: 2, branchCount: 1 });
  const stats = addon.getStats();
  assert.equal(stats.framesEncoded, packets.length);
  assert.equal(stats.framesCaptured, stats.framesEncoded);
  assert.equal(stats.keyframesEncoded,
    packets.filter(({ payload }) => hasIdrSlice(payload)).length);
  assert.equal(stats.keyframesEncoded + stats.deltaFramesEncoded,
    stats.framesEncoded);
  assert.equal(stats.videoBridgeQueuedPackets, packets.length);
  assert.equal(stats.videoBridgeDroppedPackets, 0);
  assert.equal(stats.videoBridgeSuppressedDeltaPackets, 0);
  assert.equal(stats.cpuMappedFrameCount, stats.cpuMappedVideoFrames);
  assert.ok(stats.cpuMappedVideoFrames >= stats.framesEncoded);
  assert.equal(stats.firstVideoTimestampUs, packets[0].timestampUs);
  assert.equal(stats.lastVideoTimestampUs, packets.at(-1).timestampUs);
  assert.equal(stats.firstAudioVideoOffsetUs, 0);
  assert.equal(stats.audioVideoDriftUs,
    packets[0].timestampUs - packets.at(-1).timestampUs);
});

test('a report of a running capture describes it', async () => {
  const beginUs = monotonicUs();
  const { stats } = await runCapture(
    twoBranches, { seconds: 1, branchCount: 2 });
  assert.deepEqual(Object.keys(stats), topLevelKeys);
  const expected = {
    capturing: true,
    isCapturing: true,
    sourceBackend: 'x11',
    sourceKind: 'monitor',
    sourceHandle: 0,
    width: 300,
    height: 168,
    selectedProvider: 'openh264-development',
    encoderProvider: 'openh264',
    providerTier: 'degraded-cpu',
    isHardwareEncoder: false,
    isDegradedCpuFallback: true,
    hardwareTransportSatisfied: false,
    hardwareParityMode: 'none',
    hardwareSimulcastFpsSatisfied: false,
    dmaBufNegotiated: false,
    sourceMemoryFeature: 'SystemMemory',
    encoderInputMemoryFeature: 'SystemMemoryI420',
    temporalMetadataSource: 'openh264-layer-uiTemporalId',
    temporalLayerCount: 3,
    gopSize: 60,
    bFrames: 0,
    enableCABAC: false,
    lowLatencyMode: true,
    audioPipeline: '',
    audioCaps: '',
    gstBusErrors: 0,
    gstBusEos: 0,
    openH264Errors: 0,
  };
  for (const [key, value] of Object.entries(expected)) {
    assert.equal(stats[key], value, key);
  }
  assert.match(stats.selectedEncoder, /^openh264-direct-\d+\.\d+\.\d+$/);
  assert.match(stats.videoCaps, /^video\/x-raw\b.*\bI420\b/);
  assert.ok(stats.sessionClockOriginUs >= beginUs &&
    stats.sessionClockOriginUs <= monotonicUs());
  assert.deepEqual(Object.keys(stats.x11), ['windowXid', 'kind', 'geometry']);
  assert.deepEqual(stats.x11, {
    windowXid: 0,
    kind: 'monitor',
    geometry: { x: 8, y: 4, width: 300, height: 168 },
  });
  assert.deepEqual(Object.keys(stats.x11.geometry),
    ['x', 'y', 'width', 'height']);
});

test('the launch text is reported letter by letter', async () => {
  addon.captureSetup(twoBranches);
  assert.equal(addon.getStats().videoPipeline,
    'ximagesrc startx=8 starty=4 endx=307 endy=171 do-timestamp=true ' +
    'use-damage=false show-pointer=true ! ' +
    'queue max-size-buffers=4 leaky=downstream ! videoconvert ! ' +
    'video/x-raw,format=I420 ! tee name=videoTee ' +
    'videoTee. ! queue max-size-buffers=4 leaky=downstream ! ' +
    'videoscale ! videorate ! ' +
    'video/x-raw,format=I420,width=300,height=168,framerate=30/1 ! ' +
    'appsink name=videoSink0 emit-signals=true sync=false max-buffers=4 ' +
    'drop=true ' +
    'videoTee. ! queue max-size-buffers=4 leaky=downstream ! ' +
    'videoscale ! videorate ! ' +
    'video/x-raw,format=I420,width=150,height=84,framerate=15/1 ! ' +
    'appsink name=videoSink1 emit-signals=true sync=false max-buffers=4 ' +
    'drop=true ');
});

test('the branches report what their own packets show', async () => {
  const collected = await runCapture(
    twoBranches, { seconds: 2, branchCount: 2 });
  const sizes = [[300, 168, 30], [150, 84, 15]];
  assert.equal(collected.stats.branchStats.length, 2);
  collected.stats.branchStats.forEach((branch, index) => {
    assert.deepEqual(Object.keys(branch), softwareBranchKeys);
    assert.equal(branch.branchIndex, index);
    assert.deepEqual(
      [branch.width, branch.height, branch.configuredFps], sizes[index]);
    assert.equal(branch.targetFps, branch.configuredFps);
    assert.equal(branch.droppedFrames, 0);
    assert.equal(branch.duplicateFrames, 0);

    // What was encoded up to the report are the first packets of the branch.
    const packets = collected.ofBranch(index).slice(0, branch.encodedFrames);
    assert.equal(packets.length, branch.encodedFrames);
    assert.ok(branch.rawFrames >= branch.encodedFrames);
    assert.equal(branch.bytesEncoded,
      packets.reduce((sum, { payload }) => sum + payload.length, 0));
    assert.equal(branch.keyframes,
      packets.filter(({ payload }) => hasIdrSlice(payload)).length);
    const counts = [0, 0, 0, 0];
    for (const { temporalIndex } of packets) counts[temporalIndex] += 1;
    assert.deepEqual(branch.temporalFrameCounts, counts);
    assert.deepEqual(Object.entries(branch.temporalFrameDeltas),
      [['t0', counts[0]], ['t1', counts[1]], ['t2', counts[2]]]);
    assert.equal(branch.allTemporalLayersEncoded, true);
    assert.equal(branch.bridgeDroppedPackets, 0);
    assert.equal(branch.bridgeSuppressedDeltaPackets, 0);
    assert.equal(branch.bridgeKeyframeRecoveryRequests, 0);

    const span = branch.lastFrameAtMs - branch.firstFrameAtMs;
    assert.ok(span > 0);
    assert.equal(branch.observedFps, branch.encodedFrames * 1000 / span);
    assert.equal(branch.byteRate, branch.bytesEncoded * 1000 / span);
    assert.ok(Math.abs(branch.observedFps / branch.configuredFps - 1) < 0.2,
      `${branch.observedFps} pictures a second`);
  });
});

test('one temporal layer is never all layers', async () => {
  const { stats, packets } = await runCapture(
    monitorRequest({ ...source, width: 300, height: 168,
      temporalLayerCount: 1 }),
    { seconds: 0.5, branchCount: 1 });
  const [branch] = stats.branchStats;
  assert.deepEqual(branch.temporalFrameCounts, [branch.encodedFrames, 0, 0, 0]);
  assert.equal(branch.allTemporalLayersEncoded, false);
  assert.ok(packets.every(({ temporalIndex }) => temporalIndex === 0));
});

test('after a stop the counters stay and the branches are gone', async () => {
  await runCapture(oneBranch, { seconds: 0.5, branchCount: 1 });
  const stats = addon.getStats();
  assert.equal(stats.capturing, false);
  assert.equal(stats.isCapturing, false);
  assert.deepEqual(stats.branchStats, []);
  assert.ok(stats.framesEncoded > 0);
  assert.equal(stats.sourceBackend, 'x11');
  assert.equal(stats.encoderProvider, 'openh264');
  assert.notEqual(stats.videoPipeline, '');
  assert.deepEqual(addon.getStats(), stats, 'an idle report does not change');
});

test('without a fragment callback no bridge counter moves', async () => {
  // Only a process in which none was ever registered is without one.
  const child = await runNode(`
    addon.captureSetup(monitorRequest({
      sourceWidth: 320, sourceHeight: 180,
    }));
    await until(() => addon.getStats().framesEncoded > 5, 'pictures');
    addon.stopCapture();
    const {
      videoBridgeQueuedPackets, videoBridgeDroppedPackets,
      videoBridgeSuppressedDeltaPackets,
    } = addon.getStats();
    console.log(videoBridgeQueuedPackets, videoBridgeDroppedPackets,
      videoBridgeSuppressedDeltaPackets);
  `, { display: process.env.DISPLAY });
  assert.equal(child.stdout, '0 0 0\n', child.stderr);
});

test('resetStats during a capture starts counting anew', async () => {
  const { packets } = collect();
  addon.captureSetup(oneBranch);
  await until(() => packets.length > 20, 'packets');
  const earlier = addon.getStats();
  assert.equal(addon.resetStats(), undefined);
  const later = addon.getStats();

  for (const key of ['framesCaptured', 'framesEncoded',
    'cpuMappedVideoFrames', 'videoBridgeQueuedPackets']) {
    // A picture may have come between the reset and the report.
    assert.ok(later[key] <= 2, `${key} is ${later[key]}`);
  }
  for (const key of ['width', 'height', 'sessionClockOriginUs',
    'gstBusErrors', 'gstBusEos', 'lastGstBusError', 'videoCaps',
    'videoPipeline', 'selectedEncoder', 'encoderProvider', 'capturing']) {
    assert.deepEqual(later[key], earlier[key], key);
  }
  const [branch] = later.branchStats;
  assert.deepEqual([branch.branchIndex, branch.width, branch.height,
    branch.configuredFps], [0, 300, 168, 30]);
  assert.ok(branch.encodedFrames <= 2);

  // The clock is the same one: the first time after the reset goes on.
  await until(() => addon.getStats().firstVideoTimestampUs > 0, 'a picture');
  assert.ok(addon.getStats().firstVideoTimestampUs >
    earlier.lastVideoTimestampUs);
});

test('a new capture starts from nothing', async () => {
  await runCapture(oneBranch, { seconds: 1, branchCount: 1 });
  const { sessionClockOriginUs } = addon.getStats();
  addon.captureSetup(oneBranch);
  const stats = addon.getStats();
  assert.ok(stats.framesEncoded <= 2, `${stats.framesEncoded} at once`);
  assert.ok(stats.sessionClockOriginUs > sessionClockOriginUs);
});

test('figures that are made of others agree with them', async () => {
  const { packets } = collect();
  addon.captureSetup(oneBranch);
  await until(() => packets.length > 2, 'packets');
  const before = addon.getStats().lastVideoTimestampUs;
  let stats;
  do {
    stats = addon.getStats();
    // There is no sound: its span is none.
    assert.equal(stats.audioVideoDriftUs,
      stats.firstVideoTimestampUs - stats.lastVideoTimestampUs);
  } while (stats.lastVideoTimestampUs - before < 1_000_000);
});
