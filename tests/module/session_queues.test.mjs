import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { describe, test } from 'node:test';

const { AudioQueue, VideoQueue } =
  createRequire(import.meta.url)('../../lib/session/packet_queue.js');

/** Pushes pictures named by number; those in `keys` are keyframes. */
function push(queue, first, last, keys = []) {
  for (let number = first; number <= last; number += 1) {
    queue.push({ number, isKeyframe: keys.includes(number) });
  }
}

async function rest(reader) {
  const packets = [];
  for await (const packet of reader) packets.push(packet);
  return packets;
}

const numbers = (packets) => packets.map(({ number }) => number);
const gaps = (packets) =>
  numbers(packets.filter(({ isAfterGap }) => isAfterGap));

function videoQueue(limit) {
  const requests = [];
  const queue = new VideoQueue(limit, () => requests.push(queue.received));
  return { queue, requests };
}

describe('pictures', () => {
  test('wait for the first reader from the beginning on', async () => {
    const { queue, requests } = videoQueue(5);
    push(queue, 0, 3, [0]);
    const reader = queue.read('q');
    push(queue, 4, 4);
    queue.end();
    const packets = await rest(reader);
    assert.deepEqual(numbers(packets), [0, 1, 2, 3, 4]);
    assert.deepEqual(gaps(packets), []);
    assert.deepEqual(requests, []);
  });

  test('begin with a keyframe', async () => {
    const { queue } = videoQueue(5);
    push(queue, 0, 3, [2]);
    queue.end();
    assert.deepEqual(numbers(await rest(queue.read('q'))), [2, 3]);
  });

  test('that are too many go up to a keyframe that waits', async () => {
    const { queue, requests } = videoQueue(4);
    const reader = queue.read('q');
    push(queue, 0, 4, [0, 2]);
    queue.end();
    const packets = await rest(reader);
    assert.deepEqual(numbers(packets), [2, 3, 4]);
    assert.deepEqual(gaps(packets), [2]);
    assert.equal(queue.counters().dropped, 2);
    assert.deepEqual(requests, []);
  });

  test('without one go up to the next, which is asked for once', async () => {
    const { queue, requests } = videoQueue(4);
    const reader = queue.read('q');
    push(queue, 0, 9, [0, 8]);
    queue.end();
    const packets = await rest(reader);
    assert.deepEqual(numbers(packets), [8, 9]);
    assert.deepEqual(gaps(packets), [8]);
    assert.deepEqual(requests, [5]);
    const { received, delivered, dropped, unread } = queue.counters();
    assert.deepEqual([received, delivered, dropped, unread], [10, 2, 8, 0]);
  });

  test('make room for a keyframe that comes when all is full', async () => {
    const { queue, requests } = videoQueue(4);
    const reader = queue.read('q');
    push(queue, 0, 5, [0, 4]);
    queue.end();
    assert.deepEqual(numbers(await rest(reader)), [4, 5]);
    assert.deepEqual(requests, []);
  });

  test('nobody reads are discarded, and a reader asks for a keyframe',
    async () => {
      const { queue, requests } = videoQueue(4);
      push(queue, 0, 9, [0, 7]);
      assert.deepEqual(requests, []);
      const { unread, waiting } = queue.counters();
      assert.deepEqual([unread, waiting], [10, 0]);
      const reader = queue.read('q');
      assert.deepEqual(requests, [10]);
      push(queue, 10, 12, [11]);
      queue.end();
      const packets = await rest(reader);
      assert.deepEqual(numbers(packets), [11, 12]);
      assert.deepEqual(gaps(packets), [11]);
    });

  test('are not kept when a reader has gone', async () => {
    const { queue, requests } = videoQueue(9);
    push(queue, 0, 3, [0]);
    await queue.read('q').return();
    push(queue, 4, 6, [5]);
    assert.equal(queue.counters().waiting, 0);
    const reader = queue.read('q');
    assert.deepEqual(requests, [7]);
    push(queue, 7, 8, [7]);
    queue.end();
    assert.deepEqual(numbers(await rest(reader)), [7, 8]);
  });
});

describe('sound', () => {
  test('that is too much loses the oldest', async () => {
    const queue = new AudioQueue(3);
    const reader = queue.read('q');
    push(queue, 0, 9);
    queue.end();
    const packets = await rest(reader);
    assert.deepEqual(numbers(packets), [7, 8, 9]);
    assert.deepEqual(gaps(packets), [7]);
    assert.equal(queue.counters().dropped, 7);
  });
});

describe('a reader', () => {
  test('waits for what comes', async () => {
    const queue = new AudioQueue(3);
    const next = queue.read('q').next();
    push(queue, 0, 0);
    assert.equal((await next).value.number, 0);
  });

  test('that asks several times at once gets everything in order', async () => {
    const queue = new AudioQueue(9);
    const reader = queue.read('q');
    const asked = [reader.next(), reader.next(), reader.next()];
    push(queue, 0, 1);
    queue.end();
    assert.deepEqual((await Promise.all(asked))
      .map(({ value, done }) => value?.number ?? done), [0, 1, true]);
  });

  test('gets what waits before the error, and then only the end', async () => {
    const queue = new AudioQueue(9);
    const reader = queue.read('q');
    push(queue, 0, 0);
    const error = new Error('broken');
    queue.end(error);
    assert.equal((await reader.next()).value.number, 0);
    await assert.rejects(reader.next(), error);
    assert.deepEqual(await reader.next(), { value: undefined, done: true });
  });

  test('that is ended while it waits ends', async () => {
    const queue = new AudioQueue(9);
    const reader = queue.read('q');
    const next = reader.next();
    await reader.return();
    assert.equal((await next).done, true);
    assert.equal(queue.counters().hasReader, false);
  });

  test('is one at a time', () => {
    const queue = new AudioQueue(9);
    queue.read('the sound');
    assert.throws(() => queue.read('the sound'), {
      code: 'ERR_CAPTURE_READER',
      message: 'the sound has a reader already; end that one first',
    });
  });
});
