import addon = require('../../index');
import { captureSetup, getStats } from '../../index';

// True only for the very same type, where assignability would let a wider or
// narrower one pass.
type Same<A, B> =
  (<T>() => T extends A ? 1 : 2) extends (<T>() => T extends B ? 1 : 2)
    ? true
    : false;
function expectTrue<T extends true>(): T | undefined {
  return undefined;
}

expectTrue<Same<ReturnType<typeof captureSetup>, void>>();
expectTrue<Same<ReturnType<typeof addon.stopCapture>, void>>();
expectTrue<Same<ReturnType<typeof addon.isCapturing>, boolean>>();
expectTrue<Same<ReturnType<typeof addon.forceKeyframe>, boolean>>();
expectTrue<Same<ReturnType<typeof addon.listWindows>, never[]>>();
expectTrue<Same<ReturnType<typeof addon.duplicateFdFromPid>, number>>();

// The whole table, so that a function neither goes missing nor is added.
type FunctionName =
  | 'captureSetup' | 'stopCapture' | 'isCapturing' | 'resetStats'
  | 'getStats' | 'listWindows' | 'listMonitors' | 'forceKeyframe'
  | 'setBitrate' | 'updateAudioTargets' | 'duplicateFdFromPid'
  | 'onFragmentReady' | 'onAudioSamples' | 'onCaptureLifecycle';
expectTrue<Same<keyof typeof addon, FunctionName>>();

addon.onFragmentReady((packet) => {
  expectTrue<Same<typeof packet.payload, Buffer>>();
  expectTrue<Same<typeof packet.temporalIndex, number>>();
  expectTrue<Same<typeof packet.isKeyFrame, boolean>>();
  // @ts-expect-error sound has samples, pictures do not
  void packet.samples;
});
addon.onAudioSamples((packet) => {
  expectTrue<Same<typeof packet.type, 'pcm'>>();
  void packet.samples.subarray(0, packet.sampleCount);
  // @ts-expect-error only video packets repeat their time under this name
  void packet.timestamp;
});
addon.onCaptureLifecycle(({ state, reason, width, height }) => {
  expectTrue<Same<typeof state, 'ready' | 'stopped' | 'error'>>();
  void `${reason} ${width}x${height}`;
});

// @ts-expect-error a callback is required
addon.onFragmentReady();
// @ts-expect-error a callback is a function
addon.onAudioSamples('callback');
// @ts-expect-error one callback only
addon.onCaptureLifecycle(() => {}, () => {});

const applied = addon.setBitrate(2_000_000);
void (applied.branchBitrates[0]?.bitrateUnits ?? 0).toFixed();
// @ts-expect-error bits per second are a number
addon.setBitrate('2000000');

const rebound = addon.updateAudioTargets({
  mode: 'process',
  pipeWireTargetObjects: [61],
});
expectTrue<Same<typeof rebound.pipeWireTargetObjects, number[]>>();
// @ts-expect-error only the sound of processes can be changed
addon.updateAudioTargets({ mode: 'system', pipeWireTargetObjects: [61] });

const stats = getStats();
expectTrue<Same<typeof stats.backend, 'linux'>>();
expectTrue<Same<typeof stats.portal.streamSize.width, number>>();
// @ts-expect-error a capture of a window has no geometry
void stats.x11.geometry.width;
for (const branch of stats.branchStats) {
  if (branch.appliedBitrate === undefined) {
    // @ts-expect-error the software encoder counts no such requests
    void branch.hardwareKeyframeRequestsAccepted;
  } else {
    expectTrue<Same<typeof branch.appliedBitrate, number>>();
    void branch.hardwareKeyframeRequestsAccepted.toFixed();
  }
  expectTrue<Same<
    typeof branch.temporalFrameCounts, [number, number, number, number]>>();
}
