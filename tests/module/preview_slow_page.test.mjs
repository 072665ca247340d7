import assert from 'node:assert/strict';
import { afterEach, beforeEach, test } from 'node:test';
import { setImmediate as nextTurn } from 'node:timers/promises';
import { PreviewServer } from '../../lib/preview/preview_server.mjs';
import session from '../../lib/session/index.js';
import { FakeCapture } from '../support/fake_capture.mjs';
import { connect, enter } from '../support/preview_client.mjs';
import { until } from '../support/until.mjs';

const pictureBytes = 200_000;

let server;
let capture;
let entry;
beforeEach(async () => {
  capture = new FakeCapture({ branchCount: 2 });
  server = await PreviewServer.listen();
  server.show(capture);
  entry = await enter(server.address);
});
afterEach(async () => {
  capture.end();
  await server.close({ reason: 'stop', error: null, detail: null });
});

async function watching(branches) {
  const client = await connect(entry);
  const asked = capture.keyframesAsked;
  client.send({ type: 'watch', branches, sound: false });
  await until(() => capture.keyframesAsked > asked, 'the wish for a keyframe');
  return client;
}

test('a branch begins with a keyframe, which is asked for', async () => {
  const client = await watching([1]);
  capture.send({ branch: 1 });
  capture.send({ branch: 0, isKeyframe: true });
  const first = capture.send({ branch: 1, isKeyframe: true });
  const second = capture.send({ branch: 1 });
  await until(() => client.pictures.length === 2, 'two pictures');
  assert.deepEqual(client.pictures.map((picture) => picture.timestampUs),
    [first, second]);
  await until(() => client.last('stats'), 'the statistics');
  assert.deepEqual(client.last('stats').withheld, [0, 0]);
});

test('a page that does not read is passed over, and the other sees all',
  async () => {
    const slow = await watching([0]);
    const quick = await watching([0]);
    slow.socket.pause();
    capture.send({ isKeyframe: true });
    const count = 200;
    for (let i = 0; i < count; i += 1) {
      capture.send({ size: pictureBytes });
      await until(() => quick.pictures.length === i + 2, 'the quick page');
      quick.pictures.at(-1).data = null;
    }
    const withheld = () => quick.last('stats')?.withheld;
    await until(withheld, 'the statistics');
    assert.deepEqual(withheld(), [0, 0]);

    slow.socket.resume();
    await until(() => slow.last('stats')?.withheld[0] > 0,
      'the count of what was withheld');
    const received = slow.pictures.length;
    // The system keeps some for a connection, and the server one megabyte.
    assert.ok(received < count / 2, `${received} pictures were kept`);
    assert.ok(received + slow.last('stats').withheld[0] === count + 1,
      `${received} came, ${slow.last('stats').withheld[0]} did not`);

    // No picture without those that it builds on.
    capture.send();
    const keyframe = capture.send({ isKeyframe: true });
    await until(() => slow.pictures.length > received, 'the next keyframe');
    assert.equal(slow.pictures[received].timestampUs, keyframe);
    assert.equal(slow.pictures[received].isKeyframe, true);
  });

test('wishes for keyframes come through together, not one by one', async () => {
  const client = await watching([0]);
  const before = capture.keyframesAsked;
  const startedMs = performance.now();
  for (let i = 0; i < 50; i += 1) client.send({ type: 'keyframe' });
  await until(() => capture.keyframesAsked > before, 'the keyframe');
  for (let i = 0; i < 50; i += 1) await nextTurn();
  // Some of the wishes may take their time to come.
  const most = 2 + Math.floor((performance.now() - startedMs) / 300);
  assert.ok(capture.keyframesAsked - before <= most,
    `${capture.keyframesAsked - before} keyframes`);
});

test('a page is told about an error that does not end the capture, and then ' +
  'about the end', async () => {
  const client = await watching([0]);
  capture.events.emit('error', { message: 'no sound', isFatal: false });
  await until(() => client.last('notice'), 'the notice');
  assert.equal(client.last('notice').text, 'no sound');
  capture.end();
  await server.close(
    { reason: 'error', error: new Error('video: broken'), detail: null });
  await until(() => client.closed, 'the end');
  assert.deepEqual(client.last('ended'), {
    type: 'ended', isError: true, title: 'The capture met an error.',
    detail: 'video: broken',
  });
  server = await PreviewServer.listen();
});

test('a page is told what the capture lives through, also one that comes ' +
  'later, and when it is over', async () => {
  const early = await watching([0]);
  const hidden = new session.CaptureError('ERR_CAPTURE_INTERRUPTED',
    'the window is hidden', { isFatal: false, nativeCode: 'window-hidden' });
  capture.events.emit('error', hidden);
  const late = await watching([0]);
  for (const client of [early, late]) {
    await until(() => client.last('troubles'), 'the trouble');
    assert.deepEqual(client.last('troubles'),
      { type: 'troubles', texts: ['the window is hidden'], over: null });
  }
  capture.events.emit('recovered',
    { error: hidden, message: 'the window can be read again' });
  for (const client of [early, late]) {
    await until(() => client.last('troubles').over, 'the end of it');
    assert.deepEqual(client.last('troubles'), { type: 'troubles', texts: [],
      over: 'the window can be read again' });
  }
  const last = await watching([0]);
  assert.equal(last.last('troubles'), undefined);
});

test('a pause that one page asks for is told to all, also to later ones',
  async () => {
    const [asking, other] = [await watching([0]), await watching([0])];
    asking.send({ type: 'pause', isPaused: true });
    for (const client of [asking, other]) {
      await until(() => client.last('paused')?.isPaused === true, 'the pause');
    }
    const late = await watching([0]);
    await until(() => late.last('hello'), 'the greeting');
    assert.equal(late.last('hello').isPaused, true);
    // The clock of the capture has stood still meanwhile.
    capture.clockOriginUs += 5_000_000;
    late.send({ type: 'pause', isPaused: false });
    for (const client of [asking, other, late]) {
      await until(() => client.last('paused')?.isPaused === false, 'its end');
    }
    assert.equal(capture.isPaused, false);
    capture.send({ isKeyframe: true });
    await until(() => other.pictures.length === 1, 'a picture');
    const monotonicMs = Number(process.hrtime.bigint()) / 1e6;
    const { timestampUs, capturedAtMs } = other.pictures[0];
    const expectedMs = timestampUs / 1e3 + 5_000 + Date.now() - monotonicMs;
    assert.ok(Math.abs(capturedAtMs - expectedMs) < 1_000,
      `${capturedAtMs - expectedMs} ms off`);
  });
