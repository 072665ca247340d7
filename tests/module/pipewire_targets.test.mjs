import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { readNumber } from '../support/picture.mjs';
import { readObjects, waitUntilNodeIsGone } from
  '../support/pipewire_objects.mjs';
import { portalRequest, withAudio } from '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { decodeFlawlessly } from '../support/stream_checks.mjs';
import { until } from '../support/until.mjs';

const size = { width: 320, height: 180 };
let screen;
let camera;
let holder;
let tone;
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    screen = await startVideo(started, { name: 'screen', ...size });
    // What a careless default would be taken from.
    camera = await startVideo(started, { name: 'camera', ...size });
    holder = await startHolder(started);
    tone = await startPlayer(started, { name: 'tone', hertz: 440 });
    return [screen, camera, holder, tone];
  },
});

const requestFor = (node) => portalRequest({
  fd: addon.duplicateFdFromPid(holder.pid, holder.fd), node, ...size,
});

/** Refused by name, within the time that a state change may take. */
function assertRefused(request, target) {
  const { packets, audio, events } = collect();
  const begin = performance.now();
  assert.throws(() => addon.captureSetup(request), {
    name: 'Error', message: `PipeWire target ${target} does not exist`,
  });
  const tookMs = performance.now() - begin;
  assert.ok(tookMs < 5_000, `${tookMs} ms`);
  assert.equal(addon.isCapturing(), false);
  assert.deepEqual([packets.length, audio.length, events.length], [0, 0, 0]);
}

test('a video node that never was is refused by its number', () => {
  assertRefused(requestFor({ id: 987_654 }), 987_654);
});

test('an application that never was is refused by its number', () => {
  assertRefused(withAudio(requestFor(screen.node), 'process', [987_654]),
    987_654);
});

test('one missing application among several is the one that is named', () => {
  assertRefused(withAudio(requestFor(screen.node), 'process',
    [tone.serial, 987_654]), 987_654);
});

test('the id of an object is not taken for its serial', () => {
  assert.notEqual(tone.node.id, tone.serial);
  assertRefused(withAudio(requestFor(screen.node), 'process',
    [1_000_000 + tone.node.id]), 1_000_000 + tone.node.id);
});

test('what went away since it was chosen is refused, nothing else recorded',
  async () => {
    const gone = await startVideo(session, { name: 'gone', ...size });
    const request = requestFor(gone.node);
    await gone.kill();
    await waitUntilNodeIsGone(session, 'gone');
    assertRefused(request, gone.node.id);

    const quiet = await startPlayer(session, { name: 'quiet', hertz: 300 });
    await quiet.kill();
    await waitUntilNodeIsGone(session, 'quiet');
    assertRefused(withAudio(requestFor(screen.node), 'process',
      [quiet.serial]), quiet.serial);
    const { links, nodeNamed } = await readObjects(session);
    assert.ok(!links.some(({ from }) => from === nodeNamed('camera').id));
  });

test('a refusal spoils neither the descriptor nor the next capture',
  async () => {
    const fd = addon.duplicateFdFromPid(holder.pid, holder.fd);
    const base = { fd, ...size };
    assert.throws(() => addon.captureSetup(
      portalRequest({ ...base, node: { id: 987_654 } })));
    const collected = collect();
    addon.captureSetup(portalRequest({ ...base, node: screen.node }));
    await until(() => collected.packets.length > 20, 'pictures');
    addon.stopCapture();
    const numbers = (await decodeFlawlessly(collected.packets))
      .map(readNumber);
    assert.ok(new Set(numbers).size > 10);
  });
