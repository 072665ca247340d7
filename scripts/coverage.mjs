// Runs tests and shows, by folder, how much of the native code and of the
// JavaScript they reached.
//
//   npm run coverage [-- [--files] [--check] [--keep] [suite...]]
//
// The suites are those of run_tests.mjs; unit tests, module tests and those in
// a browser by default. --files shows each file. --check fails where a folder
// is below its share in coverage.json. --keep adds to what has been counted
// before, or shows it again where no suite is named. Every line that nothing
// reached is listed in build/coverage/unreached.txt, without those of which
// the code itself says why (see coverage_marks.mjs). A process that is killed,
// as some tests do to their hosts, has counted nothing.
import { spawnSync } from 'node:child_process';
import { readFileSync, rmSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

import { build } from './build.mjs';
import { explainedLines } from './coverage_marks.mjs';
import { forgetNativeCounts, readNativeLines } from './coverage_native.mjs';
import { readScriptLines } from './coverage_script.mjs';

const root = fileURLToPath(new URL('..', import.meta.url));
const preset = 'coverage';
const buildFolder = path.join(root, 'build', preset);
const scriptFolder = path.join(buildFolder, 'v8');
const listFile = path.join(buildFolder, 'unreached.txt');

const isNativeSource = (name) => /^(src|programs)\//.test(name);
const isScript = (name) => /^(index\.js|(bin|lib)\/.*\.m?js)$/.test(name);

/**
 * Takes the lines that say why nothing reaches them out of the counts. Returns
 * how many there were by file, and the marks that stand before nothing.
 */
export function takeExplained(files, readText) {
  const explained = new Map();
  const idle = [];
  for (const [name, counts] of files) {
    const marks = explainedLines(readText(name), counts);
    for (const line of marks.explained) counts.delete(line);
    explained.set(name, marks.explained.size);
    idle.push(...marks.idle.map((line) => `${name}:${line}`));
  }
  return { explained, idle };
}

/**
 * Sums by folder, or by whatever `groupOf` makes of a file's name, of the lines
 * that there are, those that ran, and those that are explained.
 */
export function groupLines(files, groupOf = path.dirname,
  explained = new Map()) {
  const groups = new Map();
  for (const [name, counts] of files) {
    const group = groupOf(name);
    const sum = groups.get(group) ??
      { group, lines: 0, reached: 0, explained: 0 };
    groups.set(group, sum);
    sum.lines += counts.size;
    sum.explained += explained.get(name) ?? 0;
    for (const count of counts.values()) sum.reached += count > 0 ? 1 : 0;
  }
  return [...groups.values()]
    .sort(({ group: one }, { group: other }) => (one < other ? -1 : 1));
}

const shareOf = ({ lines, reached }) =>
  (lines === 0 ? 100 : 100 * reached / lines);

export function coverageTable(groups) {
  const total = { group: 'all', lines: 0, reached: 0, explained: 0 };
  for (const group of groups) {
    for (const name of ['lines', 'reached', 'explained']) {
      total[name] += group[name];
    }
  }
  const width = Math.max(...groups.map(({ group }) => group.length), 3);
  return [...groups, total].map((group) =>
    `  ${group.group.padEnd(width)}  ${
      String(group.reached).padStart(6)} of ${
      String(group.lines).padStart(6)} lines  ${
      shareOf(group).toFixed(1).padStart(5)} %${
      group.explained > 0 ? `, ${group.explained} explained` : ''}`)
    .join('\n');
}

/** The folders below the share, in percent, that they are to have. */
export function foldersBelow(groups, shares) {
  return groups.flatMap((group) => {
    const share = shares[group.group];
    if (share === undefined) return [`${group.group} has no share`];
    return shareOf(group) >= share
      ? []
      : [`${group.group}: ${shareOf(group).toFixed(1)} %, not ${share} %`];
  });
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

const readShares = () => JSON.parse(
  readFileSync(path.join(root, 'scripts', 'coverage.json'), 'utf8'));

function scriptNames() {
  const { stdout } = spawnSync('git', ['ls-files', '-z', '--cached',
    '--others', '--exclude-standard'], { cwd: root, encoding: 'utf8' });
  return stdout.split('\0').filter(isScript);
}

function runSuites(suites) {
  const { status } = spawnSync(process.execPath,
    ['scripts/run_tests.mjs', '--preset', preset, ...suites], {
      cwd: root,
      env: { ...process.env, NODE_V8_COVERAGE: scriptFolder },
      stdio: ['ignore', 'inherit', 'inherit'],
    });
  return status;
}

function main(args) {
  const { values: { files: isByFile, check, keep }, positionals } = parseArgs({
    args,
    options: {
      files: { type: 'boolean', default: false },
      check: { type: 'boolean', default: false },
      keep: { type: 'boolean', default: false },
    },
    allowPositionals: true,
  });
  const suites = positionals.length > 0 || keep
    ? positionals
    : ['unit', 'module', 'browser'];
  if (!keep) {
    forgetNativeCounts(buildFolder);
    rmSync(scriptFolder, { recursive: true, force: true });
  }
  let status = 0;
  if (suites.length > 0) {
    build(['all'], { preset });
    status = runSuites(suites);
  }
  const files = new Map([
    ...pick(readNativeLines(buildFolder, root), isNativeSource),
    ...readScriptLines(scriptFolder, scriptNames(), root),
  ]);
  const { explained, idle } = takeExplained(files,
    (name) => readFileSync(path.join(root, name), 'utf8'));
  for (const [title, isOne] of [['C++', isNativeSource],
    ['JavaScript', isScript]]) {
    console.log(`\n${title}\n${coverageTable(groupLines(pick(files, isOne),
      isByFile ? (name) => name : undefined, explained))}`);
  }
  writeFileSync(listFile, [...unreachedLines(files), ''].join('\n'));
  console.log(`\nWhat nothing reached: ${path.relative(root, listFile)}`);
  const faults = [
    ...idle.map((place) => `${place} says "Untested", but is tested`),
    ...check ? foldersBelow(groupLines(files), readShares()) : [],
  ];
  for (const fault of faults) console.error(fault);
  return check && faults.length > 0 ? 1 : status;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  process.exitCode = main(process.argv.slice(2));
}
