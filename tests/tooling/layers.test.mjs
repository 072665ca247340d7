import assert from 'node:assert/strict';
import { test } from 'node:test';

import {
  checkIncludes, checkNativeLayers, findCycle, quotedIncludes, readRules,
} from '../../scripts/check_layers.mjs';

test('the native sources keep to their floors', () => {
  assert.deepEqual(checkNativeLayers(readRules().src), []);
});

test('rules that go round are found', () => {
  assert.equal(findCycle({ a: ['b'], b: [], c: ['a', 'b'] }), null);
  assert.deepEqual(findCycle({ a: ['b'], b: ['c'], c: ['b'] }),
    ['b', 'c', 'b']);
});

test('an include that goes up is named with its file', () => {
  const rules = { low: [], high: ['low'] };
  assert.deepEqual(checkIncludes('high/x.cc', ['low/a.h', 'high/b.h'], rules),
    []);
  assert.deepEqual(checkIncludes('low/x.cc', ['high/b.h'], rules),
    ['low/x.cc: "low" may not include "high/b.h"']);
  assert.deepEqual(checkIncludes('new/x.cc', [], rules),
    ['new/x.cc: the folder "new" has no rule']);
});

test('only quoted includes count, however they are spaced', () => {
  assert.deepEqual(
    quotedIncludes('#include <gst/gst.h>\n  # include "base/a.h"\n// "b/c.h"'),
    ['base/a.h']);
});
