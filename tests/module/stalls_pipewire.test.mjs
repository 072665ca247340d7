import assert from 'node:assert/strict';
import { afterEach, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { startNode } from '../support/child.mjs';
import { readObjects } from '../support/pipewire_objects.mjs';
import { audioObject, portalRequest, withAudio } from
  '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { until } from '../support/until.mjs';

const size = { width: 160, height: 90 };
let screen;
let tone;
const holders = [];
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    screen = await startVideo(started, size);
    tone = await startPlayer(started, { name: 'tone', hertz: 440 });
    return [screen, tone];
  },
});

const freeze = ({ child }) => child.kill('SIGSTOP');
const thaw = ({ child }) => child.kill('SIGCONT');

afterEach(async () => {
  thaw(session.daemon);
  thaw(session.manager);
  addon.stopCapture();
  for (const holder of holders.splice(0)) await holder.stop();
});

/**
 * A request over a connection of its own, as the portal gives a new one each
 * time: a capture that was given up may still read from the one it has.
 */
async function pictures(node = screen.node) {
  const holder = await startHolder(session);
  holders.push(holder);
  return portalRequest({
    fd: addon.duplicateFdFromPid(holder.pid, holder.fd), node, ...size,
  });
}

/** Five seconds, five for each pipeline to settle, and a busy machine. */
const bound = 14_000;

function timed(call) {
  const begin = performance.now();
  let thrown;
  try {
    call();
  } catch (error) {
    thrown = error;
  }
  const ms = performance.now() - begin;
  assert.ok(ms < bound, `it took ${ms} ms`);
  return thrown === undefined ? undefined
    : { message: thrown.message, code: thrown.code };
}

/** A capture of the screen, and the tone, that works. */
async function checkCapture() {
  const collected = collect();
  addon.captureSetup(withAudio(await pictures(), 'process', [tone.serial]));
  await until(() => collected.packets.length > 10 &&
    collected.audio.some(({ nonZeroSamples }) => nonZeroSamples > 0),
  'pictures and sound', 20_000);
  return collected;
}

test('a daemon that stands still before the start is named', async () => {
  const request = await pictures();
  freeze(session.daemon);
  assert.deepEqual(timed(() => addon.captureSetup(request)), {
    message: 'PipeWire does not answer', code: 'sound-server-stalled',
  });
  assert.equal(addon.isCapturing(), false);
  thaw(session.daemon);
  await checkCapture();
});

test('a session manager that stands still is named', async () => {
  const request = await pictures();
  freeze(session.manager);
  assert.deepEqual(timed(() => addon.captureSetup(request)), {
    message: `PipeWire target ${screen.node.id} was not linked: PipeWire's ` +
      'session manager does not answer',
    code: 'session-manager-stalled',
  });
  thaw(session.manager);
  await checkCapture();
});

test('a capture ends and another begins though the daemon stands still',
  async () => {
    await checkCapture();
    const request = await pictures();
    freeze(session.daemon);
    assert.equal(timed(() => addon.stopCapture()), undefined);
    assert.equal(timed(() => addon.captureSetup(request))?.message,
      'PipeWire does not answer');
    thaw(session.daemon);
    await checkCapture();
  });

test('targets are refused by name while the daemon stands still', async () => {
  await checkCapture();
  freeze(session.daemon);
  assert.deepEqual(
    timed(() => addon.updateAudioTargets(audioObject([tone.serial]))),
    { message: 'PipeWire does not answer', code: 'sound-server-stalled' });
  thaw(session.daemon);
  assert.equal(addon.isCapturing(), true);
});

test('a daemon that stands still in mid-capture is an error, once',
  async () => {
    const { audio, events, packets, arrivalsUs } = await checkCapture();
    const errors = () => events.filter(({ state }) => state === 'error');
    freeze(session.daemon);
    const begin = performance.now();
    await until(() => errors().length >= 2, 'the events', 20_000);
    const ms = performance.now() - begin;
    assert.ok(ms < 8_000, `it took ${ms} ms`);
    assert.deepEqual(errors()
      .map(({ reason, code }) => [reason, code]).toSorted(), [
      ['audio: PipeWire does not answer', 'sound-server-stalled'],
      ['video: PipeWire does not answer', 'sound-server-stalled'],
    ]);
    await until(() => performance.now() - begin > 8_000, 'a while');
    const { length } = packets;
    const { length: heard } = audio;
    thaw(session.daemon);
    await until(() => packets.length > length + 30 &&
      audio.slice(heard).some(({ nonZeroSamples }) => nonZeroSamples > 0),
    'pictures and sound', 20_000);
    addon.stopCapture();
    const ages = packets.map(({ timestampUs }, index) =>
      arrivalsUs[index] - timestampUs);
    const youngest = Math.min(...ages);
    assert.deepEqual(ages.slice(length)
      .filter((age) => age - youngest > 1_000_000), []);
    assert.equal(errors().length, 2);
  });

test('an application that has paused its stream is named', async () => {
  const paused = await startVideo(session, {
    name: 'paused', ...size, clickEvery: 1,
  });
  try {
    const click = await until(
      async () => (await readObjects(session)).nodeNamed('paused-click'),
      'its sound');
    paused.command('pause');
    await paused.waitFor(/^paused$/m, 'the pause');
    const refusal = (target) => ({
      message: `PipeWire target ${target} does not start: it is paused`,
      code: 'source-paused',
    });
    const heard = withAudio(await pictures(), 'process', [click.serial]);
    assert.deepEqual(timed(() => addon.captureSetup(heard)),
      refusal(click.serial));
    const seen = await pictures(paused.node);
    assert.deepEqual(timed(() => addon.captureSetup(seen)),
      refusal(paused.node.id));

    const { audio, packets } = await checkCapture();
    assert.deepEqual(
      timed(() => addon.updateAudioTargets(audioObject([click.serial]))),
      refusal(click.serial));
    const pictureCount = packets.length;
    await until(() => packets.length > pictureCount + 10, 'more pictures');
    const count = audio.length;
    addon.updateAudioTargets(audioObject([tone.serial]));
    await until(() => audio.slice(count)
      .some(({ nonZeroSamples }) => nonZeroSamples > 0), 'the tone again');
  } finally {
    await paused.stop();
  }
});

for (const [how, code, end] of [
  ['process.exit', 7, 'process.exit(7);'],
  ['nothing left to do', 0, 'addon.stopCapture();'],
]) {
  test(`a process ends by ${how} while the daemon stands still`, async () => {
    const request = await pictures();
    const [{ pid, fd }] = holders;
    const node = startNode(`
      const { packets } = collect();
      const request = ${JSON.stringify(request)};
      request.portal.pipeWireFd = addon.duplicateFdFromPid(${pid}, ${fd});
      addon.captureSetup(request);
      await until(() => packets.length > 5, 'pictures');
      console.log('running');
      await new Promise((resolve) => process.stdin.once('data', resolve));
      process.stdin.destroy();
      ${end}
    `, { environment: session.environment });
    try {
      await until(() => /running/.test(node.stdout.text), 'pictures', 20_000);
      freeze(session.daemon);
      node.child.stdin.write('go\n');
      const begin = performance.now();
      const ended = await node.end(30_000);
      assert.equal(ended.isTimedOut, false, ended.stderr.slice(-2000));
      assert.equal(ended.code, code, ended.stderr.slice(-2000));
      const ms = performance.now() - begin;
      assert.ok(ms < bound, `it took ${ms} ms`);
    } finally {
      node.child.kill('SIGKILL');
    }
  });
}
