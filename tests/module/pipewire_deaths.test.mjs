import assert from 'node:assert/strict';
import { afterEach, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { audioObject, portalRequest, withAudio } from
  '../support/pipewire_requests.mjs';
import { addSink, removeSink } from '../support/pipewire.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { until } from '../support/until.mjs';

const session = usePipeWire({ withSink: true });
const size = { width: 160, height: 90 };
const helpers = [];

async function start(starter, ...args) {
  const helper = await starter(session, ...args);
  helpers.push(helper);
  return helper;
}

afterEach(async () => {
  addon.stopCapture();
  for (const helper of helpers.splice(0)) await helper.stop();
});

/** A screen and a tone, captured; everything new at every call. */
async function startCapture() {
  const screen = await start(startVideo, size);
  const holder = await start(startHolder);
  const tone = await start(startPlayer, { name: 'tone', hertz: 440 });
  const collected = collect();
  addon.captureSetup(withAudio(portalRequest({
    fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
    node: screen.node,
    ...size,
  }), 'process', [tone.serial]));
  await until(() => collected.packets.length > 10 &&
    collected.audio.length > 10, 'pictures and sound');
  return { screen, holder, tone, collected };
}

const errorsOf = ({ events }) => events
  .filter(({ state }) => state === 'error')
  .map(({ reason }) => reason);

/** Stops, which must not take long, and captures anew. */
async function checkNextCapture() {
  const begin = performance.now();
  addon.stopCapture();
  const tookMs = performance.now() - begin;
  assert.ok(tookMs < 2_000, `the stop took ${tookMs} ms`);
  for (const helper of helpers.splice(0)) await helper.stop();
  const { collected } = await startCapture();
  assert.deepEqual(errorsOf(collected), []);
}

test('the end of the video producer is one error, and sound goes on',
  async () => {
    const { screen, collected } = await startCapture();
    await screen.kill();
    await until(() => errorsOf(collected).length > 0, 'an error', 5_000);
    const { length } = collected.audio;
    await until(() => collected.audio.length > length + 100, 'more sound');
    const reason = `video: PipeWire target ${screen.node.id} went away`;
    assert.equal(errorsOf(collected)[0], reason);
    const stats = addon.getStats();
    assert.equal(stats.gstBusErrors, errorsOf(collected).length);
    assert.equal(addon.isCapturing(), true, 'stopping is the host\'s decision');
    await checkNextCapture();
  });

test('the end of an application is one error, and pictures go on',
  async () => {
    const { tone, collected } = await startCapture();
    await tone.kill();
    await until(() => errorsOf(collected).length > 0, 'an error', 5_000);
    const { length } = collected.packets;
    await until(() => collected.packets.length > length + 40, 'more pictures');
    assert.equal(errorsOf(collected)[0],
      `audio: PipeWire target ${tone.serial} went away`);
    assert.equal(addon.getStats().gstBusErrors, errorsOf(collected).length);

    const other = await start(startPlayer, { name: 'other', hertz: 700 });
    addon.updateAudioTargets(audioObject([other.serial]));
    const count = collected.audio.length;
    await until(() => collected.audio.slice(count)
      .some(({ nonZeroSamples }) => nonZeroSamples > 0), 'the other sound');
    await checkNextCapture();
  });

test('the end of the session manager is one error of each source', async () => {
  const { screen, holder, tone, collected } = await startCapture();
  await session.killManager();
  await until(() => errorsOf(collected).length >= 2, 'two errors', 5_000);
  assert.deepEqual(errorsOf(collected).toSorted(), [
    `audio: PipeWire target ${tone.serial} was disconnected`,
    `video: PipeWire target ${screen.node.id} was disconnected`,
  ]);
  addon.stopCapture();

  const begin = performance.now();
  assert.throws(() => addon.captureSetup(portalRequest({
    fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
    node: screen.node,
    ...size,
  })), { message: `PipeWire target ${screen.node.id} cannot be linked: ` +
    'PipeWire has no session manager' });
  assert.ok(performance.now() - begin < 5_000);

  // WirePlumber 0.4 does not take over a sink that another one configured.
  await removeSink(session, session.sink);
  await session.startManager();
  session.sink = await addSink(session);
  await checkNextCapture();
});

test('the end of the daemon is one error of each pipeline', async () => {
  const { collected } = await startCapture();
  await session.killDaemon();
  await until(() => errorsOf(collected).length >= 2, 'two errors', 5_000);
  assert.deepEqual(errorsOf(collected).toSorted(), [
    'audio: the PipeWire connection was lost',
    'video: the PipeWire connection was lost',
  ]);
  const { gstBusErrors, lastGstBusError } = addon.getStats();
  assert.equal(gstBusErrors, 2);
  assert.equal(lastGstBusError, 'audio: the PipeWire connection was lost');

  addon.stopCapture();
  await session.killManager();
  await session.startDaemon();
  await session.startManager();
  session.sink = await addSink(session);
  await checkNextCapture();
});
