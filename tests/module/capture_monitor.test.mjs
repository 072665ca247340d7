import assert from 'node:assert/strict';
import { before, describe, test } from 'node:test';
import { runCapture } from '../support/capture.mjs';
import { useDisplay } from '../support/display.mjs';
import { missedPictures, readNumber, typicalColourError } from
  '../support/picture.mjs';
import { monitorRequest } from '../support/requests.mjs';
import {
  checkAccessUnits, checkDescription, checkKeyframes, checkPacketShape,
  checkTemporalLayers, checkTiming, decodeFlawlessly, keyframePeriod,
} from '../support/stream_checks.mjs';

// The scene lies away from the screen's corner, so that only a capture of the
// right rectangle can show it.
const place = { x: 72, y: 41 };
const sceneFps = 60;
useDisplay({
  width: 800, height: 480,
  scene: { ...place, width: 640, height: 360, fps: sceneFps },
});

const branches = [
  { branchIndex: 0, width: 640, height: 360, fps: 30, bitrate: 4_000_000 },
  { branchIndex: 1, width: 320, height: 180, fps: 15, bitrate: 2_000_000 },
  { branchIndex: 2, width: 160, height: 90, fps: 7, bitrate: 1_000_000 },
];
const temporalLayerCount = 3;
const [{ branchIndex, ...primary }, ...secondaries] = branches;

describe('a rectangle of the screen in three branches', () => {
  let captured;
  const decoded = [];

  before(async () => {
    captured = await runCapture(
      monitorRequest({
        ...place,
        ...primary,
        maxBitrate: 8_000_000,
        temporalLayerCount,
        branches: secondaries,
      }),
      { seconds: 5, branchCount: branches.length });
    for (const branch of branches) {
      decoded.push(await decodeFlawlessly(
        captured.ofBranch(branch.branchIndex)));
    }
  });

  test('nothing but video arrives', () => {
    assert.equal(captured.audio.length, 0);
    assert.deepEqual(captured.events.map(({ state }) => state),
      ['ready', 'stopped']);
  });

  for (const branch of branches) {
    const name = `${branch.width}x${branch.height} at ${branch.fps}`;
    const own = () => captured.ofBranch(branch.branchIndex);

    test(`${name}: packets have the promised shape`, () => {
      checkPacketShape(own(), branch);
      checkAccessUnits(own());
    });

    test(`${name}: size, profile and colour are as described`, async () => {
      const frames = await checkDescription(own(), branch);
      checkKeyframes(own(), frames,
        keyframePeriod(branch.fps, temporalLayerCount));
    });

    test(`${name}: the lower temporal layers decode alone`, async () => {
      await checkTemporalLayers(
        own(), decoded[branch.branchIndex], temporalLayerCount);
    });

    test(`${name}: times grow on the session clock`, () => {
      const arrivalsUs = captured.arrivalsUs.filter((_, index) =>
        captured.packets[index].branchIndex === branch.branchIndex);
      checkTiming(own(), arrivalsUs, {
        fps: branch.fps,
        originUs: captured.stats.sessionClockOriginUs,
      });
    });

    test(`${name}: every picture is one of the scene, in its colours`, () => {
      const pictures = decoded[branch.branchIndex];
      const numbers = pictures.map(readNumber);
      assert.ok(!numbers.includes(null), numbers.join(' '));
      const error = typicalColourError(pictures);
      assert.ok(error <= 4, `a colour is off by ${error}`);
    });

    test(`${name}: nine tenths of the pictures are new ones`, () => {
      const numbers = decoded[branch.branchIndex].map(readNumber);
      assert.ok(
        missedPictures(numbers, sceneFps / branch.fps) <= 0.1 * numbers.length,
        numbers.join(' '));
      assert.deepEqual(numbers, [...numbers].sort((a, b) => a - b),
        'pictures come in order');
    });
  }

  test('raw and session time differ by the same amount everywhere', () => {
    // A raw time of zero is the first picture's: none is known there.
    const differences = new Set(captured.packets
      .filter(({ rawPtsUs }) => rawPtsUs > 0)
      .map(({ timestampUs, rawPtsUs }) => timestampUs - rawPtsUs));
    assert.equal(differences.size, 1, [...differences].join(' '));
  });
});
