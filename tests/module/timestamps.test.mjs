import assert from 'node:assert/strict';
import { test } from 'node:test';
import { runCapture } from '../support/capture.mjs';
import { useDisplay } from '../support/display.mjs';
import { monitorRequest } from '../support/requests.mjs';

const size = { width: 1920, height: 1080 };
useDisplay({ ...size, scene: { fps: 60 } });

// The first picture of a large source needs longer than one period of a fast
// branch, which is when a capture's first times can go wrong.
const rates = [120, 60];
const request = monitorRequest({
  sourceWidth: size.width,
  sourceHeight: size.height,
  width: 640,
  height: 360,
  fps: rates[0],
  branches: [{ width: 160, height: 90, fps: rates[1], bitrate: 500_000 }],
});

test('times grow strictly from the very first packet on', async () => {
  for (let start = 0; start < 8; start += 1) {
    const captured = await runCapture(
      request, { seconds: 0.1, branchCount: rates.length });
    rates.forEach((_, branchIndex) => {
      const times = captured.ofBranch(branchIndex)
        .map(({ timestampUs }) => timestampUs);
      times.forEach((time, position) => {
        assert.ok(position === 0 || time > times[position - 1],
          `start ${start}, branch ${branchIndex}, packet ${position}: ` +
            times.slice(Math.max(0, position - 2), position + 3).join(' '));
      });
    });
  }
});
