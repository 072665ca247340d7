import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import {
  portalKeys, providerProbeKeys, topLevelKeys,
} from '../support/statistics_keys.mjs';

// This file never starts a capture: what it sees is the state after load.

const textsOrFlags = {
  backend: 'linux',
  capturing: false,
  isCapturing: false,
  sourceBackend: 'portal',
  sourceKind: 'window',
  audioSourceStats: [],
  selectedEncoder: '',
  selectedProvider: '',
  encoderProvider: '',
  providerTier: 'degraded-cpu',
  isHardwareEncoder: false,
  isDegradedCpuFallback: true,
  hardwareTransportSatisfied: false,
  hardwareParityMode: 'none',
  hardwareSimulcastFpsSatisfied: false,
  dmaBufNegotiated: false,
  sourceMemoryFeature: 'SystemMemory',
  encoderInputMemoryFeature: 'SystemMemoryI420',
  temporalMetadataSource: 'missing',
  temporalLayerCount: 1,
  gopSize: 120,
  bFrames: 2,
  enableCABAC: true,
  lowLatencyMode: true,
  videoPipeline: '',
  audioPipeline: '',
  videoCaps: '',
  audioCaps: '',
  lastGstBusError: '',
  lastOpenH264Error: '',
  branchStats: [],
};

test('the report has all its keys, in order, before any capture', () => {
  assert.deepEqual(Object.keys(addon.getStats()), topLevelKeys);
});

test('before any capture every value is its default', () => {
  const { providerProbeReport, portal, x11, linuxAudio, ...rest } =
    addon.getStats();
  for (const [key, value] of Object.entries(rest)) {
    assert.deepEqual(value, Object.hasOwn(textsOrFlags, key)
      ? textsOrFlags[key] : 0, key);
  }
});

test('the portal part holds a default request', () => {
  const { portal } = addon.getStats();
  assert.deepEqual(Object.keys(portal), portalKeys);
  assert.deepEqual(portal, {
    pipeWireFd: -1,
    pipeWireNodeId: 0,
    pipeWireSerial: 0,
    sourceType: 0,
    label: '',
    streamId: '',
    mappingId: '',
    restoreTokenUsed: false,
    restoreTokenUpdated: false,
    streamSize: { width: 0, height: 0 },
  });
  assert.deepEqual(Object.keys(portal.streamSize), ['width', 'height']);
});

test('the x11 part has no geometry for a window', () => {
  const { x11 } = addon.getStats();
  assert.deepEqual(Object.keys(x11), ['windowXid', 'kind']);
  assert.deepEqual(x11, { windowXid: 0, kind: 'window' });
});

test('the audio part holds a default request', () => {
  const { linuxAudio } = addon.getStats();
  assert.deepEqual(Object.keys(linuxAudio),
    ['mode', 'pipeWireTargetObjects', 'sources']);
  assert.deepEqual(linuxAudio,
    { mode: 'none', pipeWireTargetObjects: [], sources: [] });
});

test('the hardware encoders were probed at load, in their fixed order', () => {
  const { providerProbeReport } = addon.getStats();
  assert.deepEqual(providerProbeReport.map(({ encoder }) => encoder), [
    'nvh264enc', 'nvautogpuh264enc', 'vulkanh264enc', 'vah264enc',
    'qsvh264enc',
  ]);
  for (const report of providerProbeReport) {
    assert.deepEqual(Object.keys(report), providerProbeKeys);
    assert.equal(report.provider, `gstreamer-${report.encoder}`);
    assert.equal(report.probed, true);
    assert.equal(report.isHardwareEncoder, report.available);
    if (!report.available) {
      assert.equal(report.rejectionReason,
        `${report.encoder} GStreamer element is not installed`);
    }
  }
});

test('every report is an object of its own', () => {
  const report = addon.getStats();
  report.framesCaptured = 7;
  report.portal.label = 'changed';
  assert.equal(addon.getStats().framesCaptured, 0);
  assert.equal(addon.getStats().portal.label, '');
});
