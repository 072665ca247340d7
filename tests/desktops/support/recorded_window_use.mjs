import { setTimeout as sleep } from 'node:timers/promises';
import { startCapture } from 'linux-capture-addon/session';
import { addon } from '../../support/addon.mjs';
import { monotonicUs } from '../../support/capture.mjs';
import { decodeToRgb, probe } from '../../support/decode.mjs';
import { startHolder } from '../../support/pipewire_sources.mjs';
import { until } from '../../support/until.mjs';
import { glide, leftButton } from './real_use.mjs';
import { differingBlocks, percentile } from './recorded_use.mjs';

async function dropWindow(cast) {
  cast.command(`button ${leftButton} 1`);
  cast.command(`button ${leftButton} 0`);
  await sleep(300);
}

/** Drags, resizes at the corner, puts away and brings back, over and over. */
async function useWindow(cast, seconds) {
  const end = performance.now() + seconds * 1_000;
  const done = { moved: 0, resized: 0, minimised: 0 };
  for (let back = 1; performance.now() < end; back = -back) {
    cast.command('move');
    await glide(cast, 60 * back, 40 * back);
    await dropWindow(cast);
    done.moved += 1;
    cast.command('resize');
    await glide(cast, 80 * back, 40 * back, 24);
    await dropWindow(cast);
    done.resized += 1;
    await sleep(1_500);
    cast.command('minimize 1');
    await sleep(400);
    cast.command('minimize 0');
    done.minimised += 1;
    await sleep(600);
  }
  return done;
}

/**
 * Captures a window of KDE while it is used, in a session, which goes on when
 * the window has another size. Tells what recordUse does of a monitor; each
 * error has a code of its own here. `seconds` after `begin` what the window
 * shows stands still.
 */
export async function recordWindowUse(desktop, { title, seconds, fps = 30 }) {
  const cast = await desktop.startCast({ title, cursor: 'embedded' });
  const holder = await startHolder(desktop.pipeWire);
  const capture = await startCapture({
    source: {
      type: 'pipewire', kind: 'window', nodeId: cast.node.id,
      fd: addon.duplicateFdFromPid(holder.pid, holder.fd), ...desktop.size,
    },
    video: { fps },
  });
  const errors = [];
  let recovered = 0;
  capture.events.on('error', (error) => errors.push(error.nativeCode));
  capture.events.on('recovered', () => { recovered += 1; });
  const packets = [];
  const arrivals = [];
  const read = (async () => {
    for await (const packet of capture.video()) {
      packets.push({ ...packet, payload: packet.data });
      arrivals.push(monotonicUs());
    }
  })();
  try {
    const { sync: { clockOriginUs } } = capture.stats();
    const begin = performance.now();
    const done = await useWindow(cast, seconds);
    const used = (performance.now() - begin) / 1_000;
    const ages = packets.map(({ timestampUs }, position) =>
      (arrivals[position] - clockOriginUs - timestampUs) / 1e3);
    // All changes of the size have been taken in, and all stands still.
    await until(() => recovered === errors.length, 'the last size');
    await sleep(2_000);
    const still = packets.length - 1;
    capture.forceKeyframe();
    const key = await until(() => {
      const at = packets.findIndex(({ isKeyframe }, index) =>
        index > still && isKeyframe);
      return at === -1 ? 0 : at;
    }, 'a keyframe');
    await until(() => packets.length > key + 5, 'pictures of it');
    const { isActive } = capture;
    await capture.stop();
    await read;
    // Whole pictures of what comes last alone: a minute of them is too much.
    const lastKey = packets.findLastIndex(({ isKeyframe }, index) =>
      isKeyframe && index < key);
    const { pictures } = await decodeToRgb(packets.slice(lastKey));
    return {
      done, isActive,
      decoderErrors: (await probe(packets)).errors,
      reopened: errors.filter((code) => code === 'format-changed').length,
      errors: errors.filter((code) => code !== 'format-changed'),
      picturesASecond: ages.length / used,
      ageMs: { half: percentile(ages, 0.5), most: percentile(ages, 0.95) },
      staleBlocks:
        differingBlocks(pictures[key - 1 - lastKey], pictures.at(-1)),
    };
  } finally {
    await capture.stop();
    await cast.stop();
    await holder.stop();
  }
}
