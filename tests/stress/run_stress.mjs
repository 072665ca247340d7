// Puts the module under stress, as it is shipped and under the sanitizers.
//
//   node tests/stress/run_stress.mjs [--quick] [--seed N] [--only PRESET|PROGRAM]...
//                           [--results FILE]
//
// --quick takes a twentieth of the counts.
import { mkdirSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { parseArgs } from 'node:util';
import { buildFlavour, flavours, runHost } from './host.mjs';
import { startSurroundings } from './surroundings.mjs';

/** The programs and their counts. */
const programs = { cycles: 1_000, replacements: 10_000, callbacks: 10 };

const megabyte = 1e6;

/**
 * What resident memory may grow by in the release module: over all, and in the
 * second half by the program's own unit, where a leak of anything that comes
 * with every cycle would show.
 */
const growthLimit = 16 * megabyte;
const slopeLimits = {
  cycles: 3 * megabyte, replacements: 1 * megabyte, callbacks: 1 * megabyte,
};

const { values: options } = parseArgs({
  options: {
    quick: { type: 'boolean', default: false },
    seed: { type: 'string', default: '20240229' },
    only: { type: 'string', multiple: true, default: [] },
    results: { type: 'string' },
  },
});

const known = [...flavours, ...Object.keys(programs)];
for (const name of options.only) {
  if (!known.includes(name)) {
    throw new Error(`--only takes one of ${known.join(', ')}`);
  }
}

const isWanted = (name, all) => {
  const wanted = options.only.filter((each) => all.includes(each));
  return wanted.length === 0 || wanted.includes(name);
};

const inMegabytes = (bytes) => (bytes / megabyte).toFixed(1);

/** Every check of one run: its name and what is wrong, if anything. */
function judge({ flavour, program, result, problems }) {
  const checks = [['came to its end without a report', problems.join('; ')]];
  if (result === undefined) return checks;
  const { before, after, slope, slopeUnit } = result;
  for (const key of ['threads', 'descriptors']) {
    checks.push([`left no ${key} behind`, after[key] > before[key]
      ? `${before[key]} before, ${after[key]} after` : '']);
  }
  // The sanitizers keep freed memory and histories of their own.
  if (flavour !== 'release') return checks;
  const growth = after.memory - before.memory;
  checks.push(['kept its memory', growth > growthLimit
    ? `${inMegabytes(growth)} MB more` : '']);
  // The samples of a short run show the pools that fill, not a trend.
  if (!options.quick) {
    checks.push(['memory does not rise', slope > slopeLimits[program]
      ? `${inMegabytes(slope)} MB per ${slopeUnit}` : '']);
  }
  return checks;
}

const columns = ['preset', 'program', 'count', 'seconds', 'threads',
  'descriptors', 'memory MB', 'MB per'];

function rowOf({ flavour, program, count, seconds, result }) {
  const row = [flavour, program, count, seconds.toFixed(0)].map(String);
  if (result === undefined) return [...row, '-', '-', '-', '-'];
  const { before, after, slope, slopeUnit } = result;
  return [...row,
    `${before.threads} -> ${after.threads}`,
    `${before.descriptors} -> ${after.descriptors}`,
    `${inMegabytes(before.memory)} -> ${inMegabytes(after.memory)}`,
    `${(slope / megabyte).toFixed(3)} per ${slopeUnit}`];
}

function printTable(rows) {
  const table = [columns, ...rows];
  const widths = columns.map((_, column) =>
    Math.max(...table.map((row) => row[column].length)));
  for (const row of table) {
    console.log(row.map((cell, column) => cell.padEnd(widths[column]))
      .join('  ').trimEnd());
  }
}

async function runProgram(flavour, program) {
  const count = Math.ceil(programs[program] / (options.quick ? 20 : 1));
  const surroundings = await startSurroundings();
  const begin = performance.now();
  try {
    const ended = await runHost({
      flavour,
      program: `${program}.mjs`,
      job: { seed: Number(options.seed), count, sources: surroundings.sources },
      environment: surroundings.environment,
    });
    const seconds = (performance.now() - begin) / 1000;
    return { flavour, program, count, seconds, ...ended };
  } finally {
    await surroundings.stop();
  }
}

async function main() {
  console.log(`seed ${options.seed}`);
  const wantedFlavours = flavours.filter((name) => isWanted(name, flavours));
  // The helpers are those of the release preset.
  for (const flavour of new Set(['release', ...wantedFlavours])) {
    console.log(`building ${flavour}`);
    buildFlavour(flavour);
  }
  let passed = 0;
  let failed = 0;
  const rows = [];
  for (const flavour of wantedFlavours) {
    for (const program of Object.keys(programs)) {
      if (!isWanted(program, Object.keys(programs))) continue;
      console.log(`\n== ${flavour}: ${program} ==`);
      const ended = await runProgram(flavour, program);
      rows.push(rowOf(ended));
      if (ended.result !== undefined) console.log(`  ${ended.result.notes}`);
      for (const [name, problem] of judge(ended)) {
        console.log(`  ${problem === '' ? 'ok' : 'NOT OK'}  ${name}` +
          (problem === '' ? '' : `: ${problem}`));
        if (problem === '') passed += 1;
        else failed += 1;
      }
      if (ended.problems.length > 0) {
        console.error(ended.errors.slice(0, 200).join('\n'));
      }
    }
  }
  console.log('');
  printTable(rows);
  if (options.results !== undefined) {
    mkdirSync(path.dirname(options.results), { recursive: true });
    writeFileSync(options.results, `${passed} ${failed}\n`);
  }
  console.log(`\n${passed} passed, ${failed} failed`);
  return failed === 0 ? 0 : 1;
}

try {
  process.exitCode = await main();
} catch (error) {
  console.error(error);
  console.log('\n0 passed, 1 failed');
  process.exitCode = 1;
}
