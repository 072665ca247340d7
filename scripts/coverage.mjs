// Runs tests and shows, by folder, how much of the native code and of the
// JavaScript they reached.
//
//   npm run coverage [-- [--files] [suite...]]
//
// The suites are those of run_tests.mjs; unit tests, module tests and those in
// a browser by default. --files shows each file. Every line that nothing
// reached is listed in build/coverage/unreached.txt. A process that is killed,
// as some tests do to their hosts, has counted nothing.
import { spawnSync } from 'node:child_process';
import { rmSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

import { build } from './build.mjs';
import { forgetNativeCounts, readNativeLines } from './coverage_native.mjs';
import { readScriptLines } from './coverage_script.mjs';

const root = fileURLToPath(new URL('..', import.meta.url));
const preset = 'coverage';
const buildFolder = path.join(root, 'build', preset);
const scriptFolder = path.join(buildFolder, 'v8');
const listFile = path.join(buildFolder, 'unreached.txt');

const isNativeSource = (name) => /^(src|programs)\//.test(name);
const isScript = (name) => /^(index\.js|(bin|lib)\/.*\.m?js)$/.test(name);

/** How many lines of several files there are, and how many ran. */
function sumOf(files) {
  const sum = { lines: 0, reached: 0 };
  for (const counts of files) {
    sum.lines += counts.size;
    for (const count of counts.values()) sum.reached += count > 0 ? 1 : 0;
  }
  return sum;
}

/** Sums by folder, or by whatever `groupOf` makes of a file's name. */
export function groupLines(files, groupOf = path.dirname) {
  const groups = new Map();
  for (const [name, counts] of files) {
    const group = groupOf(name);
    groups.set(group, [...groups.get(group) ?? [], counts]);
  }
  return [...groups].sort(([one], [other]) => (one < other ? -1 : 1))
    .map(([group, counts]) => ({ group, ...sumOf(counts) }));
}

export function coverageTable(groups) {
  const total = groups.reduce((sum, { lines, reached }) => (
    { group: 'all', lines: sum.lines + lines, reached: sum.reached + reached }),
  { group: 'all', lines: 0, reached: 0 });
  const width = Math.max(...groups.map(({ group }) => group.length), 3);
  return [...groups, total].map(({ group, lines, reached }) =>
    `  ${group.padEnd(width)}  ${
      String(reached).padStart(6)} of ${String(lines).padStart(6)} lines  ${
      (lines === 0 ? 0 : 100 * reached / lines).toFixed(1).padStart(5)} %`)
    .join('\n');
}

/** The lines that nothing reached, as "file: 1, 4-7". */
export function unreachedLines(files) {
  return [...files].map(([name, counts]) => {
    const spans = [];
    let isOpen = false;
    for (const [line, count] of [...counts].sort(([a], [b]) => a - b)) {
      if (count > 0) {
        isOpen = false;
      } else if (isOpen) {
        spans.at(-1)[1] = line;
      } else {
        spans.push([line, line]);
        isOpen = true;
      }
    }
    return spans.length === 0 ? null : `${name}: ${spans.map(([from, to]) =>
      (from === to ? String(from) : `${from}-${to}`)).join(', ')}`;
  }).filter((line) => line !== null).sort();
}

const pick = (files, isWanted) =>
  new Map([...files].filter(([name]) => isWanted(name)));

function scriptNames() {
  const { stdout } = spawnSync('git', ['ls-files', '-z', '--cached',
    '--others', '--exclude-standard'], { cwd: root, encoding: 'utf8' });
  return stdout.split('\0').filter(isScript);
}

function main(args) {
  const { values: { files: isByFile }, positionals: suites } = parseArgs({
    args,
    options: { files: { type: 'boolean', default: false } },
    allowPositionals: true,
  });
  build(['all'], { preset });
  forgetNativeCounts(buildFolder);
  rmSync(scriptFolder, { recursive: true, force: true });
  const { status } = spawnSync(process.execPath,
    ['scripts/run_tests.mjs', '--preset', preset,
      ...(suites.length > 0 ? suites : ['unit', 'module', 'browser'])], {
      cwd: root,
      env: { ...process.env, NODE_V8_COVERAGE: scriptFolder },
      stdio: ['ignore', 'inherit', 'inherit'],
    });
  const native = pick(readNativeLines(buildFolder, root), isNativeSource);
  const scripts = readScriptLines(scriptFolder, scriptNames(), root);
  for (const [title, files] of [['C++', native], ['JavaScript', scripts]]) {
    console.log(`\n${title}\n${coverageTable(
      groupLines(files, isByFile ? (name) => name : undefined))}`);
  }
  writeFileSync(listFile, [...unreachedLines(native),
    ...unreachedLines(scripts), ''].join('\n'));
  console.log(`\nWhat nothing reached: ${path.relative(root, listFile)}`);
  return status;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  process.exitCode = main(process.argv.slice(2));
}
