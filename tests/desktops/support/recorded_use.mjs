import { setTimeout as sleep } from 'node:timers/promises';
import { addon } from '../../support/addon.mjs';
import { collect } from '../../support/capture.mjs';
import { decodeToRgb, probe } from '../../support/decode.mjs';
import { until } from '../../support/until.mjs';
import { withRequest } from './cast_capture.mjs';
import { monitorName } from './mutter.mjs';
import { useDesktop } from './real_use.mjs';

export const percentile = (values, part) =>
  values.toSorted((a, b) => a - b)[Math.floor((values.length - 1) * part)];

/** How many blocks of 16x16 pixels differ clearly between two pictures. */
export function differingBlocks(one, other) {
  const { width, height } = one;
  let differing = 0;
  for (let top = 0; top < height; top += 16) {
    for (let left = 0; left < width; left += 16) {
      let sum = 0;
      let count = 0;
      for (let y = top; y < Math.min(top + 16, height); y += 1) {
        for (let x = left; x < Math.min(left + 16, width); x += 1) {
          const at = (y * width + x) * 3;
          for (const channel of [0, 1, 2]) {
            sum += Math.abs(one.data[at + channel] - other.data[at + channel]);
            count += 1;
          }
        }
      }
      if (sum / count > 24) differing += 1;
    }
  }
  return differing;
}

/**
 * Captures a monitor of GNOME while it is used, and tells what came of it: the
 * errors, how many pictures a second moved, how old they were in JavaScript
 * (milliseconds), and the blocks that a keyframe mended once all stood still:
 * those had shown something that was long gone.
 */
export async function recordUse(desktop, use) {
  const cast = await desktop.startCast(
    ['--monitor', monitorName, '--cursor', 'embedded', '--input']);
  const result = await withRequest(desktop, cast.node, {}, async (request) => {
    const collected = collect();
    addon.captureSetup(request);
    const originUs = addon.getStats().sessionClockOriginUs;
    await until(() => collected.packets.length > 5, 'pictures');
    const from = collected.packets.length;
    const begin = performance.now();
    const done = await useDesktop(desktop, cast, use);
    const seconds = (performance.now() - begin) / 1_000;
    const to = collected.packets.length;
    await sleep(1_500);
    const beforeKey = collected.packets.length;
    addon.forceKeyframe();
    const keyAt = await until(() => {
      const at = collected.packets.findIndex(({ isKeyFrame }, position) =>
        position >= beforeKey && isKeyFrame);
      return at === -1 ? null : at;
    }, 'a keyframe');
    await until(() => collected.packets.length > keyAt + 5, 'pictures of it');
    addon.stopCapture();
    const packets = [...collected.packets];
    // Whole pictures of what comes last alone: a minute of them is too much.
    const lastKey = packets.findLastIndex(({ isKeyFrame }, position) =>
      isKeyFrame && position < keyAt);
    const { pictures } = await decodeToRgb(packets.slice(lastKey));
    const { errors } = await probe(packets);
    const ages = packets.slice(from, to).map(({ timestampUs }, position) =>
      (collected.arrivalsUs[from + position] - originUs - timestampUs) / 1e3);
    return {
      done,
      decoderErrors: errors,
      errors: collected.events.filter(({ state }) => state === 'error'),
      picturesASecond: (to - from) / seconds,
      ageMs: { half: percentile(ages, 0.5), most: percentile(ages, 0.95) },
      staleBlocks: differingBlocks(pictures[keyAt - 1 - lastKey],
        pictures.at(-1)),
    };
  });
  await cast.stop();
  return result;
}
