import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';

import { addRow, cellOf } from '../../scripts/matrix_table.mjs';

const page = `before

| System | Processor | GStreamer | Run |
|---|---|---|---|
| Debian 12 | x64 | 1.22 | natively |

after
`;

test('a system that is new gets a row in its place', () => {
  const row = { System: 'Debian 9', Processor: 'x64', Run: 'natively' };
  assert.equal(addRow(page, row), page.replace('| Debian 12',
    '| Debian 9 | x64 | not tried | natively |\n| Debian 12'));
});

test('the same system on another processor is another row', () => {
  const row = { System: 'Debian 12', Processor: 'arm64', Run: 'emulated' };
  assert.ok(addRow(page, row).includes(
    '| Debian 12 | arm64 | not tried | emulated |\n| Debian 12 | x64 | 1.22 |'));
});

test('a system that is tested again keeps what was not', () => {
  const row = { System: 'Debian 12', Processor: 'x64', Run: 'emulated' };
  assert.equal(addRow(page, row), page.replace('natively', 'emulated'));
});

test('what the table has no column for is refused', () => {
  assert.throws(() => addRow(page, { System: 'Debian 12', Colour: 'red' }),
    /no column "Colour"/);
});

test('a failure says of how many tests', () => {
  assert.equal(cellOf({ passed: 4, failed: 0 }), 'yes (4)');
  assert.equal(cellOf({ passed: 4, failed: 1 }), 'no (1 of 5)');
});

test('the page has every system that is tested by default', () => {
  const text = readFileSync(
    new URL('../../docs/systems.md', import.meta.url), 'utf8');
  for (const system of ['Debian 12', 'Debian 13', 'Debian testing']) {
    assert.ok(text.includes(`\n| ${system} | x64 |`), system);
  }
  assert.ok(text.includes('\n| Debian 12 | arm64 |'));
});
