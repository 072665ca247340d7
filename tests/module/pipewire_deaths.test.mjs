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
import { isPipeWireAtLeast } from '../support/pipewire_version.mjs';
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

/**
 * What PipeWire itself has to say about a source that ended, from 1.4 on and
 * in varying order. It names nothing, so it comes besides the module's own
 * error and never instead of it.
 */
const pipeWireWords = [
  'stream error: defined target not found',
  'all buffers have been removed',
  'Internal data stream error.',
];

const isPipeWires = (reason) => isPipeWireAtLeast('1.4') &&
  pipeWireWords.includes(reason.replace(/^(audio|video): /, ''));

/** Waits for the module's own errors, which are these and no other. */
async function expectErrors(collected, expected) {
  const own = () => errorsOf(collected)
    .filter((reason) => !isPipeWires(reason)).toSorted();
  await until(() => own().length >= expected.length,
    `the errors ${expected.join(', ')}`, 5_000);
  assert.deepEqual(own(), expected);
}

/** What is said about a loss concerns what was lost. */
function assertOnly(collected, pipeline) {
  for (const reason of errorsOf(collected)) {
    assert.ok(reason.startsWith(`${pipeline}: `), reason);
  }
}

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

test('the end of the video producer is named, once, and sound goes on',
  async () => {
    const { screen, collected } = await startCapture();
    await screen.kill();
    const expected = [`video: PipeWire target ${screen.node.id} went away`];
    await expectErrors(collected, expected);
    const { length } = collected.audio;
    await until(() => collected.audio.length > length + 100, 'more sound');
    await expectErrors(collected, expected);
    assertOnly(collected, 'video');
    const stats = addon.getStats();
    assert.equal(stats.gstBusErrors, errorsOf(collected).length);
    assert.equal(addon.isCapturing(), true, 'stopping is the host\'s decision');
    await checkNextCapture();
  });

test('the end of an application is named, once, and pictures go on',
  async () => {
    const { tone, collected } = await startCapture();
    await tone.kill();
    const expected = [`audio: PipeWire target ${tone.serial} went away`];
    await expectErrors(collected, expected);
    const { length } = collected.packets;
    await until(() => collected.packets.length > length + 40, 'more pictures');
    await expectErrors(collected, expected);
    assertOnly(collected, 'audio');
    assert.equal(addon.getStats().gstBusErrors, errorsOf(collected).length);

    const other = await start(startPlayer, { name: 'other', hertz: 700 });
    addon.updateAudioTargets(audioObject([other.serial]));
    const count = collected.audio.length;
    await until(() => collected.audio.slice(count)
      .some(({ nonZeroSamples }) => nonZeroSamples > 0), 'the other sound');
    await checkNextCapture();
  });

test('the end of the session manager is named for each source', async () => {
  const { screen, holder, tone, collected } = await startCapture();
  await session.killManager();
  await expectErrors(collected, [
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

test('the end of the daemon is named for each pipeline', async () => {
  const { collected } = await startCapture();
  await session.killDaemon();
  await expectErrors(collected, [
    'audio: the PipeWire connection was lost',
    'video: the PipeWire connection was lost',
  ]);
  const { gstBusErrors, lastGstBusError } = addon.getStats();
  assert.equal(gstBusErrors, errorsOf(collected).length);
  assert.equal(lastGstBusError, errorsOf(collected).at(-1));

  addon.stopCapture();
  await session.killManager();
  await session.startDaemon();
  await session.startManager();
  session.sink = await addSink(session);
  await checkNextCapture();
});
