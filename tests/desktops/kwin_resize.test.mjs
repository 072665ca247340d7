import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import { startCapture } from 'linux-capture-addon/session';
import { addon } from '../support/addon.mjs';
import { patchAt, patchColours, readNumber } from '../support/picture.mjs';
import { startHolder } from '../support/pipewire_sources.mjs';
import { followsFormats } from '../support/pipewire_version.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';
import { enterDesktop } from './support/cast_capture.mjs';
import { startKwin } from './support/kwin.mjs';

let desktop;
before(async () => {
  desktop = await startKwin();
  enterDesktop(desktop);
});
after(() => desktop?.stop());

/** A session that captures a window, with all that it has sent and told. */
async function startSession() {
  const window = await desktop.startWindow({ fps: 15 });
  const cast = await desktop.startCast();
  const holder = await startHolder(desktop.pipeWire);
  const capture = await startCapture({
    source: {
      type: 'pipewire', kind: 'window', nodeId: cast.node.id,
      fd: addon.duplicateFdFromPid(holder.pid, holder.fd), ...desktop.size,
    },
    video: { fps: 15 },
  });
  const told = [];
  capture.events.on('error', ({ nativeCode, message }) =>
    told.push({ kind: nativeCode, message, at: performance.now() }));
  capture.events.on('recovered', ({ error }) =>
    told.push({ kind: `${error.nativeCode} is over`, at: performance.now() }));
  const packets = [];
  const read = (async () => {
    for await (const packet of capture.video()) packets.push(packet);
  })();
  return {
    window, cast, capture, told, packets,
    /** Waits for so many more pictures. */
    more: (count) => {
      const { length } = packets;
      return until(() => packets.length >= length + count, 'pictures');
    },
    async end() {
      await capture.stop();
      await read.catch(() => {});
      await cast.stop();
      await window.stop();
      await holder.stop();
    },
  };
}

/** Whether a picture of the window is whole, and of the window alone. */
function isWhole(picture) {
  return patchColours.every((colour, patch) => colour.every((value, channel) =>
    Math.abs(value - patchAt(picture, patch)[channel]) < 40));
}

async function picturesOf(packets) {
  return decodeFlawlessly(packets.map((packet) =>
    ({ ...packet, payload: packet.data })));
}

test('a window of KDE that is resized is captured on, each time', async () => {
  const session = await startSession();
  const { window, told, packets, capture } = session;
  const ends = [];
  try {
    await session.more(10);
    // The shape stays, so that what is shown can be compared.
    for (const size of ['480 270', '240 136', '320 180']) {
      const { length } = told;
      window.command(`size ${size}`);
      if (!followsFormats) {
        await until(() => told.length >= length + 2, 'the new size');
      }
      await session.more(15);
      ends.push(packets.length - 1);
    }
    assert.equal(capture.isActive, true);
  } finally {
    await session.end();
  }
  assert.deepEqual(told.map(({ kind }) => kind), followsFormats ? []
    : ends.flatMap(() => ['format-changed', 'format-changed is over']));
  const pictures = await picturesOf(packets);
  const numbers = ends.map((index) => readNumber(pictures[index]));
  for (const index of ends) assert.ok(isWhole(pictures[index]), `at ${index}`);
  assert.deepEqual(numbers, [...new Set(numbers)].sort((a, b) => a - b));
});

test('a window of KDE may be resized all the time', async () => {
  const session = await startSession();
  const { window, packets, told } = session;
  let last;
  try {
    await session.more(5);
    for (let step = 1; step <= 40; step += 1) {
      window.command(`size ${320 + 4 * step} ${180 + 2 * step}`);
      await sleep(50);
    }
    window.command('size 320 180');
    // The last change has been taken in when new pictures come.
    const seen = async () => {
      await session.more(10);
      last = (await picturesOf(packets)).at(-1);
      return isWhole(last) && readNumber(last) !== null;
    };
    const { number } = await window.sendOne();
    await until(async () => await seen() && readNumber(last) > number,
      'the size of the beginning');
  } finally {
    await session.end();
  }
  assert.deepEqual(told.filter(({ kind }) => !kind.startsWith('format-changed')),
    []);
});
