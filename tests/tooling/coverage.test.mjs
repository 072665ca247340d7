import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { test } from 'node:test';

import {
  coverageTable, foldersBelow, groupLines, takeExplained, unreachedLines,
} from '../../scripts/coverage.mjs';
import { addGcovReport, forgetNativeCounts, readNativeLines } from
  '../../scripts/coverage_native.mjs';
import { readScriptLines } from '../../scripts/coverage_script.mjs';

function inFolder(run) {
  const folder = mkdtempSync(path.join(tmpdir(), 'coverage-'));
  try {
    run(folder);
  } finally {
    rmSync(folder, { recursive: true });
  }
}

test('of a script the lines count that any process has run', () => {
  inFolder((folder) => {
    writeFileSync(path.join(folder, 'idle.js'), 'run();\n');
    writeFileSync(path.join(folder, 'half.js'), `
// Nothing to run.
function choose(one) {
  if (one) {
    return 'one';
  }
  return 'other';
}
function never() {
  return 1;
}
choose(process.argv[2] === 'one');
`);
    const lines = (choices) => {
      const counts = path.join(folder, `counts-${choices.join('-')}`);
      for (const choice of choices) {
        execFileSync(process.execPath, [path.join(folder, 'half.js'), choice],
          { env: { ...process.env, NODE_V8_COVERAGE: counts } });
      }
      return unreachedLines(
        readScriptLines(counts, ['half.js', 'idle.js'], folder));
    };
    assert.deepEqual(lines(['one']), ['half.js: 7-10', 'idle.js: 1']);
    assert.deepEqual(lines(['one', 'other']),
      ['half.js: 9-10', 'idle.js: 1']);
  });
});

test('of native code the lines count that ran, in whatever object', () => {
  inFolder((folder) => {
    writeFileSync(path.join(folder, 'program.cc'), `
int Choose(int count) {
  if (count > 1) {
    return 1;
  }
  return 2;
}
int main(int count, char**) { return Choose(count) - 2; }
`);
    writeFileSync(path.join(folder, 'idle.cc'), 'int Idle() { return 1; }\n');
    execFileSync('g++', ['-O0', '--coverage', '-c', 'program.cc', 'idle.cc'],
      { cwd: folder });
    execFileSync('g++', ['--coverage', 'program.o', '-o', 'program'],
      { cwd: folder });
    execFileSync(path.join(folder, 'program'), { cwd: folder });
    assert.deepEqual(unreachedLines(readNativeLines(folder, folder)),
      ['idle.cc: 1', 'program.cc: 4']);
  });
});

test('counts are forgotten, and none of a build that was never made', () => {
  const folder = mkdtempSync(path.join(tmpdir(), 'coverage-'));
  try {
    forgetNativeCounts(path.join(folder, 'none'));
    for (const name of ['one.gcda', 'one.gcno']) {
      writeFileSync(path.join(folder, name), '');
    }
    forgetNativeCounts(folder);
    assert.deepEqual(readdirSync(folder), ['one.gcno']);
  } finally {
    rmSync(folder, { recursive: true });
  }
});

test('a line of a header ran if it did in one file', () => {
  const files = new Map();
  for (const counts of [[0, 3], [2, 0]]) {
    addGcovReport(files, { files: [{ file: 'src/a.h', lines:
      counts.map((count, index) => ({ line_number: index + 1, count })) },
    { file: '/usr/include/b.h', lines: [{ line_number: 1, count: 1 }] }] },
    '/project');
  }
  assert.deepEqual([...files.keys()], ['src/a.h']);
  assert.deepEqual(unreachedLines(files), []);
});

test('the table sums up each folder and all', () => {
  const groups = groupLines(new Map([
    ['src/a/x.cc', new Map([[1, 1], [2, 0]])],
    ['src/a/y.cc', new Map([[1, 5], [2, 5]])],
    ['src/b/z.cc', new Map([[1, 0]])],
  ]), undefined, new Map([['src/a/x.cc', 2], ['src/a/y.cc', 1]]));
  assert.deepEqual(groups, [
    { group: 'src/a', lines: 4, reached: 3, explained: 3 },
    { group: 'src/b', lines: 1, reached: 0, explained: 0 },
  ]);
  const rows = coverageTable(groups).split('\n')
    .map((row) => row.trim().split(/\s+/).join(' '));
  assert.deepEqual(rows, ['src/a 3 of 4 lines 75.0 %, 3 explained',
    'src/b 0 of 1 lines 0.0 %', 'all 3 of 5 lines 60.0 %, 3 explained']);
  assert.deepEqual(foldersBelow(groups, { 'src/a': 75, 'src/b': 0 }), []);
  assert.deepEqual(foldersBelow(groups, { 'src/a': 75.5 }),
    ['src/a: 75.0 %, not 75.5 %', 'src/b has no share']);
});

test('a line that says why nothing reaches it is explained, no other is', () => {
  const text = `void Use() {
  if (!Open()) {
    // Untested: the machine would need
    // no memory.
    Tell();

    return;
  }
  Tell();
}

// Untested: only ever called by a debugger.
void Show() {
  Tell();
}
void Idle() {
  Tell();
}
// Untested: but it is.
void Run() {}
`;
  const counts = new Map([[1, 1], [2, 1], [5, 0], [7, 0], [9, 0], [10, 1],
    [13, 0], [14, 0], [15, 0], [16, 0], [17, 0], [18, 0], [20, 1]]);
  const files = new Map([['src/a.cc', counts]]);
  const { explained, idle } = takeExplained(files, () => text);
  assert.deepEqual(unreachedLines(files), ['src/a.cc: 9, 16-18']);
  assert.deepEqual([...explained], [['src/a.cc', 5]]);
  assert.deepEqual(idle, ['src/a.cc:19']);
});
