import assert from 'node:assert/strict';
import { test } from 'node:test';
import { runCapture } from '../support/capture.mjs';
import { useDisplay } from '../support/display.mjs';
import { missedPictures, readNumber, typicalColourError } from
  '../support/picture.mjs';
import { windowRequest } from '../support/requests.mjs';
import {
  checkAccessUnits, checkDescription, checkKeyframes, checkPacketShape,
  checkTemporalLayers, checkTiming, decodeFlawlessly, keyframePeriod,
} from '../support/stream_checks.mjs';

const sceneFps = 60;
const context = useDisplay({
  width: 800, height: 480,
  scene: { x: 211, y: 97, width: 320, height: 180, fps: sceneFps },
});

// A window has no source size in the request, so branches stay as they are
// asked for: here both have the same rate.
const branches = [
  { branchIndex: 0, width: 320, height: 180, fps: 25, bitrate: 2_000_000 },
  { branchIndex: 1, width: 160, height: 90, fps: 25, bitrate: 1_000_000 },
];

for (const temporalLayerCount of [1, 2]) {
  test(`one window with ${temporalLayerCount} temporal layers`, async () => {
    const [{ branchIndex, ...primary }, secondary] = branches;
    const captured = await runCapture(
      windowRequest({
        handle: context.scene.window,
        ...primary,
        temporalLayerCount,
        branches: [secondary],
      }),
      { seconds: 3, branchCount: 2 });

    for (const branch of branches) {
      const packets = captured.ofBranch(branch.branchIndex);
      checkPacketShape(packets, branch);
      checkAccessUnits(packets);
      const frames = await checkDescription(packets, branch);
      checkKeyframes(packets, frames,
        keyframePeriod(branch.fps, temporalLayerCount));
      const arrivalsUs = captured.arrivalsUs.filter((_, index) =>
        captured.packets[index].branchIndex === branch.branchIndex);
      checkTiming(packets, arrivalsUs, {
        fps: branch.fps,
        originUs: captured.stats.sessionClockOriginUs,
      });

      const pictures = await decodeFlawlessly(packets);
      await checkTemporalLayers(packets, pictures, temporalLayerCount);
      const numbers = pictures.map(readNumber);
      assert.ok(!numbers.includes(null), numbers.join(' '));
      assert.ok(
        missedPictures(numbers, sceneFps / branch.fps) <= 0.1 * numbers.length,
        numbers.join(' '));
      const error = typicalColourError(pictures);
      assert.ok(error <= 4, `a colour is off by ${error}`);
    }
  });
}
