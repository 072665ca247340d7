import assert from 'node:assert/strict';
import { test } from 'node:test';
import { runHardware } from '../support/hardware.mjs';
import { providerProbeKeys } from '../support/statistics_keys.mjs';

const isNvenc = (encoder) => encoder.startsWith('nv');

function reportOf(encoder, values) {
  const runnable = isNvenc(encoder);
  return {
    provider: `gstreamer-${encoder}`,
    encoder,
    providerTier: runnable ? 'hardware-simulcast-fps' : 'not-runnable',
    probed: true,
    ...values,
    hardwareParityMode: runnable ? 'simulcast-fps-presets' : 'none',
    temporalMetadataSource: runnable && values.available
      ? 'synthetic-l1t3-simulcast-dto' : 'missing',
    rejectionReason: values.rejectionReason,
  };
}

const absent = (encoder) => reportOf(encoder, {
  available: false,
  selectableForTransport: false,
  selectableForSimulcastFps: false,
  isHardwareEncoder: false,
  temporalSvcSupported: false,
  temporalLayerCapacity: 0,
  gpuMemorySupported: false,
  dmaBufSupported: false,
  memoryFeature: '',
  rejectionReason: `${encoder} GStreamer element is not installed`,
});

const withoutMemory = (encoder) => reportOf(encoder, {
  available: true,
  selectableForTransport: false,
  selectableForSimulcastFps: false,
  isHardwareEncoder: true,
  temporalSvcSupported: false,
  temporalLayerCapacity: 1,
  gpuMemorySupported: false,
  dmaBufSupported: true,
  memoryFeature: '',
  rejectionReason: `${encoder} is installed, but its sink caps do not prove ` +
    'the required GPU-backed memory feature',
});

const proven = (encoder) => reportOf(encoder, {
  available: true,
  selectableForTransport: true,
  selectableForSimulcastFps: true,
  isHardwareEncoder: true,
  temporalSvcSupported: false,
  temporalLayerCapacity: 1,
  gpuMemorySupported: true,
  dmaBufSupported: true,
  memoryFeature: 'memory:GLMemory',
  rejectionReason: `${encoder} is selectable for Linux hardware H.264 ` +
    'simulcast FPS preset parity',
});

const provenButNotRunnable = (encoder) => reportOf(encoder, {
  available: true,
  selectableForTransport: false,
  selectableForSimulcastFps: false,
  isHardwareEncoder: true,
  temporalSvcSupported: false,
  temporalLayerCapacity: 0,
  gpuMemorySupported: true,
  dmaBufSupported: false,
  memoryFeature: 'memory:DMABuf',
  rejectionReason: `${encoder} is intentionally not runnable for this gate; ` +
    'only NVIDIA NVENC is the app-facing hardware profile',
});

const othersAbsent = ['vulkanh264enc', 'vah264enc', 'qsvh264enc'].map(absent);

const assertReports = (actual, expected) => {
  assert.deepEqual(actual, expected);
  for (const each of actual) {
    assert.deepEqual(Object.keys(each), providerProbeKeys);
  }
};

const probeTwice = `
  const atLoad = addon.getStats();
  const { packets } = collect();
  let refusal = null;
  try {
    addon.captureSetup(hardwareRequest());
    await until(() => [0, 1, 2].every((index) =>
      packets.some(({ branchIndex }) => branchIndex === index)), 'packets');
  } catch (error) {
    refusal = error.message;
  }
  const afterSetup = addon.getStats();
  addon.stopCapture();
  report({ atLoad, afterSetup, refusal });
`;

async function checkProbing(expected, options) {
  const result = await runHardware(probeTwice, options);
  assertReports(result.atLoad.providerProbeReport, expected);
  assertReports(result.afterSetup.providerProbeReport, expected);
  return result;
}

const couldNotSelect = 'Linux hardware encoderRequirement could not select ' +
  'NVIDIA hardware simulcast FPS profile';

test('absent elements are reported as not installed', async () => {
  const { refusal } = await checkProbing(
    [absent('nvh264enc'), absent('nvautogpuh264enc'), ...othersAbsent],
    { standins: ['pipewire'] });
  assert.equal(refusal, couldNotSelect);
});

test('an encoder without GL memory is reported and not chosen', async () => {
  const { refusal } = await checkProbing(
    [withoutMemory('nvh264enc'), absent('nvautogpuh264enc'), ...othersAbsent],
    { switches: 'no-glmemory' });
  assert.equal(refusal, couldNotSelect);
});

test('an encoder that takes GL memory is reported and chosen', async () => {
  const { refusal, atLoad, afterSetup } = await checkProbing(
    [proven('nvh264enc'), absent('nvautogpuh264enc'), ...othersAbsent]);
  assert.equal(refusal, null);
  assert.equal(atLoad.selectedEncoder, '');
  assert.equal(afterSetup.selectedEncoder, 'gstreamer-nvh264enc');
});

test('of both encoders nvh264enc is chosen', async () => {
  const { refusal, afterSetup } = await checkProbing(
    [proven('nvh264enc'), proven('nvautogpuh264enc'), ...othersAbsent],
    { switches: 'with-nvautogpuh264enc' });
  assert.equal(refusal, null);
  assert.equal(afterSetup.selectedProvider, 'gstreamer-nvh264enc');
  assert.equal(afterSetup.encoderProvider, 'nvh264enc');
});

test('nvautogpuh264enc alone is chosen and launched', async () => {
  const { refusal, afterSetup } = await checkProbing(
    [absent('nvh264enc'), proven('nvautogpuh264enc'), ...othersAbsent],
    { switches: 'without-nvh264enc with-nvautogpuh264enc' });
  assert.equal(refusal, null);
  assert.equal(afterSetup.selectedProvider, 'gstreamer-nvautogpuh264enc');
  assert.equal(afterSetup.encoderProvider, 'nvautogpuh264enc');
  assert.equal(afterSetup.selectedEncoder, 'gstreamer-nvautogpuh264enc');
  const encoders = afterSetup.videoPipeline.match(/\S+ name=videoEncoder\d/g);
  assert.deepEqual(encoders, [0, 1, 2].map(
    (index) => `nvautogpuh264enc name=videoEncoder${index}`));
});

test('another maker\'s encoder is reported and never chosen', async () => {
  const { refusal } = await checkProbing(
    [absent('nvh264enc'), absent('nvautogpuh264enc'), absent('vulkanh264enc'),
      provenButNotRunnable('vah264enc'), absent('qsvh264enc')],
    { switches: 'without-nvh264enc with-vah264enc' });
  assert.equal(refusal, couldNotSelect);
});
