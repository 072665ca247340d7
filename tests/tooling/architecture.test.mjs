import assert from 'node:assert/strict';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import { test } from 'node:test';

import { readRules } from '../../scripts/check_layers.mjs';

const root = new URL('../../', import.meta.url);
const read = (name) => readFileSync(new URL(name, root), 'utf8');
const text = read('docs/architecture.md');

const sources = readdirSync(new URL('src', root), { recursive: true })
  .filter((name) => /\.(cc|h)$/.test(name));

test('the architecture has every floor of the module', () => {
  for (const folder of Object.keys(readRules().src)) {
    assert.ok(folder === '.' || text.includes(`| \`${folder}\` |`), folder);
  }
});

test('the architecture explains every repair of a launched pipeline', () => {
  const lists = read('src/launch_boundary/repairs.cc');
  const names = [...lists.matchAll(/^ {4}\{"(\w+)", \w+\},$/gm)]
    .map((match) => match[1]);
  assert.ok(names.length > 20);
  for (const name of names) {
    assert.ok(text.includes(`\`${name}\``), name);
  }
});

test('every file that the architecture names exists', () => {
  const named = [...text.matchAll(/`([\w/]+\.(?:cc|h|json))`/g)]
    .map((match) => match[1]);
  assert.ok(named.length > 10);
  for (const name of named) {
    assert.ok(
      existsSync(new URL(name, root)) ||
      sources.some((file) => file.endsWith(`/${name}`)),
      name);
  }
});

test('every mutex of the process has its place in the order of locks', () => {
  for (const file of sources) {
    const declared = read(`src/${file}`)
      .matchAll(/\b(?:std::mutex|Mutex)\s+(g_\w+)/g);
    for (const [, name] of declared) {
      assert.ok(text.includes(`\`${name}\``), `${name} of ${file}`);
    }
  }
});
