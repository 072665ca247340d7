import { addon } from './addon.mjs';
import { until } from './until.mjs';

/** The clock that session timestamps are counted on, in microseconds. */
export function monotonicUs() {
  return Number(process.hrtime.bigint() / 1000n);
}

/**
 * Registers all callbacks and keeps everything that arrives; for video also
 * when it arrived, beside the packets and in the same order.
 */
export function collect() {
  const collected = { packets: [], arrivalsUs: [], audio: [], events: [] };
  addon.onFragmentReady((packet) => {
    collected.packets.push(packet);
    collected.arrivalsUs.push(monotonicUs());
  });
  addon.onAudioSamples((packet) => collected.audio.push(packet));
  addon.onCaptureLifecycle((event) => collected.events.push(event));
  collected.ofBranch = (branchIndex) => collected.packets
    .filter((packet) => packet.branchIndex === branchIndex);
  return collected;
}

/**
 * Runs one capture until every branch has delivered `seconds` of video by its
 * own timestamps, stops it and returns what arrived. Statistics are taken
 * while it still runs.
 */
export async function runCapture(request, { seconds, branchCount }) {
  const collected = collect();
  addon.captureSetup(request);
  const hasEnough = (branchIndex) => {
    const packets = collected.ofBranch(branchIndex);
    return packets.length > 1 &&
      packets.at(-1).timestampUs - packets[0].timestampUs >= seconds * 1e6;
  };
  const indices = Array.from({ length: branchCount }, (_, index) => index);
  try {
    await until(() => indices.every(hasEnough),
      `${seconds} s of video on ${branchCount} branches`,
      seconds * 1e3 + 10_000);
    collected.stats = addon.getStats();
  } finally {
    addon.stopCapture();
  }
  await until(
    () => collected.events.some(({ state }) => state === 'stopped'),
    'the stopped event');
  return collected;
}
