import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Rate } from '../../lib/preview/page/rate.mjs';

/** Adds `count` moments, one every `periodMs` from `startMs` on. */
function add(rate, { startMs = 0, periodMs, count }) {
  for (let i = 0; i < count; i += 1) rate.add(startMs + i * periodMs);
}

const isNear = (value, expected) =>
  assert.ok(Math.abs(value - expected) < 0.1 * expected, `${value}`);

test('nothing is no rate', () => {
  assert.equal(new Rate().read(10_000), null);
});

test('what comes evenly has its rate', () => {
  for (const perSecond of [60, 30, 15, 7, 2]) {
    const rate = new Rate();
    const periodMs = 1000 / perSecond;
    add(rate, { periodMs, count: 3 * perSecond });
    isNear(rate.read(3000 - periodMs / 2), perSecond);
  }
});

test('the first half second is too short to tell', () => {
  const rate = new Rate();
  add(rate, { periodMs: 3, count: 3 });
  assert.equal(rate.read(10), null);
  assert.equal(rate.read(499), null);
  assert.ok(rate.read(500) <= 6, `${rate.read(500)}`);
});

test('one alone is no rate, and none at all after a while', () => {
  const rate = new Rate();
  rate.add(0);
  assert.equal(rate.read(1000), null);
  assert.equal(rate.read(2100), 0);
});

test('a new start is told from what came before it', () => {
  const rate = new Rate();
  add(rate, { periodMs: 33, count: 60 });
  rate.clear();
  assert.equal(rate.read(2000), null);
  add(rate, { startMs: 5000, periodMs: 2, count: 2 });
  assert.equal(rate.read(5004), null);
  add(rate, { startMs: 5033, periodMs: 33, count: 40 });
  isNear(rate.read(5033 + 39 * 33), 30);
});

test('a few at once after a pause are no rate either', () => {
  const rate = new Rate();
  add(rate, { periodMs: 33, count: 60 });
  add(rate, { startMs: 9000, periodMs: 1, count: 3 });
  assert.ok(rate.read(9003) <= 6, `${rate.read(9003)}`);
});

test('what stops goes down to 0', () => {
  const rate = new Rate();
  add(rate, { periodMs: 33, count: 60 });
  assert.ok(rate.read(3000) < 20);
  assert.equal(rate.read(5000), 0);
});
