import assert from 'node:assert/strict';
import { beforeEach, test } from 'node:test';

let Processor;
globalThis.AudioWorkletProcessor = class {
  port = {};
};
globalThis.registerProcessor = (name, processor) => {
  assert.equal(name, 'listener');
  Processor = processor;
};
await import('../../lib/preview/page/listener_worklet.mjs');

const blockFrames = 480;
const quantum = 128;

let processor;
let next;
beforeEach(() => {
  processor = new Processor();
  next = 1;
});

/** Hands over blocks whose left samples count up; the right are negative. */
function push(blocks) {
  for (let i = 0; i < blocks; i += 1) {
    const samples = new Int16Array(blockFrames * 2);
    for (let frame = 0; frame < blockFrames; frame += 1) {
      samples[2 * frame] = next;
      samples[2 * frame + 1] = -next;
      next += 1;
    }
    processor.port.onmessage({ data: samples });
  }
}

/** Plays so many quanta; both channels as whole numbers. */
function play(count) {
  const played = { left: [], right: [] };
  for (let i = 0; i < count; i += 1) {
    const output = [new Float32Array(quantum), new Float32Array(quantum)];
    assert.equal(processor.process([], [output]), true);
    played.left.push(...output[0].map((value) => value * 32_768));
    played.right.push(...output[1].map((value) => value * 32_768));
  }
  return played;
}

const countUp = (first, length) =>
  Array.from({ length }, (_, index) => first + index);

test('what comes is played in order on both channels', () => {
  push(10);
  const { left, right } = play(30);
  assert.deepEqual(left, countUp(1, 30 * quantum));
  assert.deepEqual(right, left.map((value) => -value));
});

test('nothing is played before a tenth of a second is there', () => {
  push(9);
  assert.ok(play(4).left.every((value) => value === 0));
  push(1);
  assert.equal(play(1).left[0], 1);
});

test('what runs out is followed by silence, then by a new start', () => {
  push(10);
  const { left } = play(40);
  assert.deepEqual(left.slice(0, 4800), countUp(1, 4800));
  assert.ok(left.slice(4800).every((value) => value === 0));
  push(9);
  assert.equal(play(1).left[0], 0);
  push(1);
  assert.equal(play(1).left[0], 4801);
});

test('the oldest goes when more comes than is played', () => {
  push(10);
  play(1);
  push(40);
  // Three tenths of a second are kept, in whole blocks.
  assert.equal(play(1).left[0], 50 * blockFrames - 30 * blockFrames + 1);
});
