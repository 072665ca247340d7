import assert from 'node:assert/strict';
import { test } from 'node:test';

import {
  checkImports, checkIncludes, checkNativeLayers, checkScriptLayers, findCycle,
  quotedIncludes, readRules, relativeImports,
} from '../../scripts/check_layers.mjs';

test('the native sources keep to their floors', () => {
  assert.deepEqual(checkNativeLayers(readRules().src), []);
});

test('the JavaScript keeps to its floors', () => {
  assert.deepEqual(checkScriptLayers(readRules().javascript), []);
});

test('the preview and the command see of the session its entry alone', () => {
  const rules = readRules().javascript;
  for (const folder of ['lib/preview', 'lib/command']) {
    assert.deepEqual(checkImports(`${folder}/x.mjs`,
      ['../session/index.js', '../session/native.js'], rules),
    [`${folder}/x.mjs: "${folder}" may not import "lib/session/native.js"`]);
  }
});

test('every form of an import counts, and only of files', () => {
  assert.deepEqual(relativeImports(`
    import { a } from './a.mjs';
    import {
      b,
    } from '../tooling/b.mjs';
    import './c.mjs';
    export * from "./d.mjs";
    const e = require('./e.js');
    const f = await import('./f.mjs');
    import addon = require('../../demo/g.js');
    import ws from 'ws';
    const fs = require('node:fs');
    run(\`require('./node_modules/\${name}/x.js')\`);`),
  ['./a.mjs', '../tooling/b.mjs', './c.mjs', './d.mjs', './e.js', './f.mjs',
    '../../demo/g.js']);
});

test('rules that go round are found', () => {
  assert.equal(findCycle({ a: ['b'], b: [], c: ['a', 'b'] }), null);
  assert.deepEqual(findCycle({ a: ['b'], b: ['c'], c: ['b'] }),
    ['b', 'c', 'b']);
  assert.deepEqual(findCycle({ a: ['b/index.js'], b: ['a'] }),
    ['a', 'b', 'a']);
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
