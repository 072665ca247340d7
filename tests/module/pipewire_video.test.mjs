import assert from 'node:assert/strict';
import { closeSync } from 'node:fs';
import { after, before, describe, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { runCapture } from '../support/capture.mjs';
import { largestColourError, missedPictures, readNumber } from
  '../support/picture.mjs';
import { portalRequest } from '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startVideo } from '../support/pipewire_sources.mjs';
import { checkPacketShape, checkTiming, decodeFlawlessly } from
  '../support/stream_checks.mjs';

let holder;
const session = usePipeWire({
  async prepare(started) {
    holder = await startHolder(started);
    return [holder];
  },
});

const sources = [
  { width: 640, height: 360, format: 'BGRx' },
  { width: 800, height: 600, format: 'RGBx' },
  // No multiple of a macroblock, and a stride that is no power of two.
  { width: 1276, height: 718, format: 'BGRx' },
];

function branchesOf({ width, height }) {
  const even = (value) => Math.floor(value / 2) * 2;
  return [
    { branchIndex: 0, width, height, fps: 30 },
    { branchIndex: 1, width: even(width / 2), height: even(height / 2),
      fps: 20 },
    { branchIndex: 2, width: even(width / 4), height: even(height / 4),
      fps: 10 },
  ];
}

/**
 * The encoder sometimes leaves one block of an earlier picture standing, which
 * the next picture mends. It may cover one digit: half of it, and the number
 * cannot be read, or all of it, and it reads as a mixture of two pictures'.
 */
function withoutSpoiltNumbers(numbers) {
  const isMixture = (number, before, after) => {
    for (let other = before + 1; other <= after; other += 1) {
      if (((number ^ before) & (number ^ other)) === 0) return true;
    }
    return false;
  };
  return numbers.filter((number) => number !== null)
    .filter((number, i, all) =>
      !((number < all[i - 1] || number > all[i + 1]) &&
        isMixture(number, all[i - 1], all[i + 1])));
}

/** Captures a producer through the descriptor that the holder holds. */
async function capture(video, branches, seconds) {
  const fd = addon.duplicateFdFromPid(holder.pid, holder.fd);
  try {
    return await runCapture(portalRequest({
      fd,
      node: video.node,
      width: video.width,
      height: video.height,
      fps: branches[0].fps,
      bitrate: 6_000_000,
      maxBitrate: 12_000_000,
      branches: branches.slice(1).map(({ width, height, fps }) =>
        ({ width, height, fps, bitrate: 2_000_000 })),
    }), { seconds, branchCount: branches.length });
  } finally {
    closeSync(fd);
  }
}

for (const source of sources) {
  describe(`${source.width}x${source.height} ${source.format}`, () => {
    const branches = branchesOf(source);
    let video;
    let captured;
    before(async () => {
      video = await startVideo(session, source);
      captured = await capture(video, branches, 1.5);
    });
    after(() => video?.stop());

    for (const branch of branches) {
      const name = `branch ${branch.branchIndex}`;
      test(`${name} shows the producer's pictures, in order and colour`,
        async () => {
          const packets = captured.ofBranch(branch.branchIndex);
          checkPacketShape(packets, {
            ...branch,
            width: packets[0].width,
            height: packets[0].height,
          });
          assert.ok(Math.abs(packets[0].width - branch.width) <= 2);
          assert.ok(Math.abs(packets[0].height - branch.height) <= 2);
          const pictures = await decodeFlawlessly(packets);
          const all = pictures.map(readNumber);
          const numbers = withoutSpoiltNumbers(all);
          assert.ok(numbers.length >= 0.8 * all.length, all.join(' '));
          assert.deepEqual(numbers, [...numbers].sort((a, b) => a - b));
          assert.ok(
            missedPictures(numbers, 30 / branch.fps) <=
              0.2 * numbers.length,
            numbers.join(' '));
          for (const picture of pictures) {
            const error = largestColourError(picture);
            assert.ok(error <= 6, `a colour is off by ${error}`);
          }
        });

      test(`${name} keeps its rate on the session clock`, () => {
        const arrivalsUs = captured.arrivalsUs.filter((_, index) =>
          captured.packets[index].branchIndex === branch.branchIndex);
        checkTiming(captured.ofBranch(branch.branchIndex), arrivalsUs, {
          fps: branch.fps,
          originUs: captured.stats.sessionClockOriginUs,
        });
      });
    }

    test('the reported launch text is the whole one', () => {
      assert.match(captured.stats.videoPipeline, new RegExp(
        `^pipewiresrc fd=\\d+ path=${video.node.id} ` +
        'do-timestamp=true on-disconnect=2 ! queue '));
    });
  });
}

describe('the rate of a producer', () => {
  const offers = [
    // Only this one leaves the choice: the fastest branch must get its rate.
    { rates: 'range', fps: 60, negotiated: /^negotiated rate=30\/1 /m },
    { rates: 'range', fps: 12, negotiated: /^negotiated rate=12\/1 /m },
    { rates: 'variable', fps: 60, negotiated: /^negotiated rate=0\/1 /m },
    { rates: 'fixed', fps: 60, negotiated: /^negotiated rate=60\/1 /m },
    { rates: 'fixed', fps: 12, negotiated: /^negotiated rate=12\/1 /m },
  ];
  const size = { width: 320, height: 180 };
  const branches = [
    { branchIndex: 0, ...size, fps: 30 },
    { branchIndex: 1, width: 160, height: 90, fps: 15 },
  ];

  for (const { rates, fps, negotiated } of offers) {
    test(`${rates}, ${fps}: is taken as it should be`, async () => {
      const video = await startVideo(session,
        { name: `${rates}${fps}`, ...size, rates, fps });
      try {
        const captured = await capture(video, branches, 1);
        assert.match(video.output.text, negotiated);
        const packets = captured.ofBranch(0);
        const numbers = (await decodeFlawlessly(packets)).map(readNumber);
        assert.ok(
          missedPictures(numbers, Math.max(1, fps / 30)) <=
            0.2 * numbers.length,
          numbers.join(' '));
      } finally {
        await video.stop();
      }
    });
  }
});

test('a producer without timestamps is captured too', async () => {
  const video = await startVideo(session,
    { name: 'timeless', width: 320, height: 180, hasTimestamps: false });
  try {
    const captured = await capture(video,
      [{ branchIndex: 0, width: 320, height: 180, fps: 30 }], 1);
    checkTiming(captured.ofBranch(0), captured.arrivalsUs, {
      fps: 30, originUs: captured.stats.sessionClockOriginUs,
    });
  } finally {
    await video.stop();
  }
});
