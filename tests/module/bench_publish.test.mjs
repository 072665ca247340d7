import assert from 'node:assert/strict';
import { test } from 'node:test';
import { makeTransportFeedback } from
  '../../bench/lib/transport_feedback.mjs';
import feedback from '../../lib/publish/rtcp_feedback.js';

const second = 1e9;
const read = (arrivals) => {
  const [report] = feedback.readReports(makeTransportFeedback(arrivals, 0));
  return report;
};

test('arrivals are told as they were', () => {
  const arrivals = [0, 1, 2, 5, 6, 9].map((index) => ({
    transport: 100 + index, ns: 7 * second + index * 3_250_000,
  }));
  const { first, arrivals: told } = read(arrivals);
  assert.equal(first, 100);
  assert.deepEqual(told.map((ms) => ms !== null),
    [true, true, true, false, false, true, true, false, false, true]);
  const known = told.filter((ms) => ms !== null);
  assert.deepEqual(known.map((ms) => ms - known[0]),
    [0, 3.25, 6.5, 16.25, 19.5, 29.25]);
});

test('arrivals over the largest number, late and out of order, are told', () => {
  const { first, arrivals } = read([
    { transport: 1, ns: second + 500e6 }, { transport: 65_535, ns: second },
    { transport: 0, ns: second + 510e6 },
  ]);
  assert.equal(first, 65_535);
  assert.deepEqual(arrivals.map((ms) => ms - arrivals[0]), [0, 510, 500]);
});
