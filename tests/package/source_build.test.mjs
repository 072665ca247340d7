import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import {
  damageModules, functionNames, installAgain, packageName, useInstalledPackage,
} from '../support/packed.mjs';

const context = useInstalledPackage();

test('a module that does not load is built where that is possible', () => {
  const { installed, environment, evaluate } = context.consumer;
  damageModules(installed);
  const { status, output } =
    installAgain(installed, { ...environment, PATH: process.env.PATH });
  assert.equal(status, 0, output);
  for (const name of ['linux_capture_addon.node', 'linux-capture-portal']) {
    assert.ok(existsSync(path.join(installed, 'build/release', name)), output);
  }
  const { stdout, stderr } = evaluate(
    `console.log(Object.keys(require('${packageName}')).length)`, 'commonjs');
  assert.equal(stdout.trim(), String(functionNames.length), stderr);
});
