// Runs the named suites and closes with the line "N passed, N failed".
//
//   node scripts/run_tests.mjs [--results FILE] [--preset NAME] suite...
//
// --preset names the build under test, "release" by default: for instance
//
//   node scripts/build.mjs --preset debug all
//   node scripts/run_tests.mjs --preset debug module:session_
//
// A suite is "unit" (the GoogleTest program; "unit:NAME" that of another preset),
// "module" (the node:test files; "module:A,B" those of tests/module whose names
// begin with A or B), "portal" (those that start a desktop), "desktops" (those
// of the compositors of GNOME and KDE; "desktops:A" some of them), "browser"
// (those that start one), "package" (those of what npm packs), "clean-root" (the
// same in a system without a compiler) or "types" (the TypeScript declarations).
// A skipped test counts as failed: it would hide that something is missing on the
// machine.
import { spawn } from 'node:child_process';
import {
  existsSync, mkdirSync, readFileSync, readdirSync, rmSync, writeFileSync,
} from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

const root = fileURLToPath(new URL('..', import.meta.url));
const resultsFolder = path.join(root, 'build', 'test-results');

// Only what hangs may meet these, on a busy machine too: a file has up to some
// twenty tests, each with limits of its own.
const suiteLimitMs = 7_200_000;
const moduleTestLimitMs = 600_000;

export const sanitizerOptions = {
  // Else GLib would keep small pieces of memory and hand them out again, where
  // the sanitizers do not see that they were given back in between.
  G_SLICE: 'always-malloc',
  // Whole stacks, since GLib is compiled without frame pointers and the
  // suppressions need to see who allocated.
  ASAN_OPTIONS: 'fast_unwind_on_malloc=0',
  LSAN_OPTIONS: 'print_suppressions=0:suppressions=' +
    path.join(root, 'scripts', 'sanitizers', 'lsan.supp'),
  // GLib and GStreamer are not compiled for the thread sanitizer, which misses
  // the atomics and futexes by which their threads hand memory over. What they
  // do themselves is left out; what a callback into the module does is not.
  TSAN_OPTIONS: 'second_deadlock_stack=1:ignore_noninstrumented_modules=1',
  UBSAN_OPTIONS: 'print_stacktrace=1:halt_on_error=1',
};

/** What makes processes of Node.js take the module and programs of a preset. */
export function presetEnvironment(preset) {
  if (preset === 'release') return {};
  const preload = path.join(root, 'tests/support/use_preset.cjs');
  return {
    LINUX_CAPTURE_PRESET: preset,
    NODE_OPTIONS:
      `${process.env.NODE_OPTIONS ?? ''} --require ${JSON.stringify(preload)}`,
  };
}

const filesIn = (folder, ending) =>
  existsSync(path.join(root, folder))
    ? readdirSync(path.join(root, folder))
      .filter((name) => name.endsWith(ending))
      .sort()
      .map((name) => path.join(folder, name))
    : [];

/** Runs a command to its end; resolves with its status and, if kept, output. */
function run(command, args, { env, keepOutput = false } = {}) {
  return new Promise((resolve) => {
    const child = spawn(command, args, {
      cwd: root,
      env: { ...process.env, ...env },
      stdio: ['ignore', keepOutput ? 'pipe' : 'inherit', 'inherit'],
    });
    const timer = setTimeout(() => {
      console.error(`${command} took over ${suiteLimitMs / 1000} s`);
      child.kill('SIGKILL');
    }, suiteLimitMs);
    let output = '';
    child.stdout?.setEncoding('utf8').on('data', (text) => {
      output += text;
    });
    child.once('error', (error) => {
      clearTimeout(timer);
      console.error(error.message);
      resolve({ isGood: false, output });
    });
    child.once('close', (code) => {
      clearTimeout(timer);
      resolve({ isGood: code === 0, output });
    });
  });
}

/** Counts a GoogleTest report; null when the program died before writing it. */
export function countGoogleTest(report) {
  if (report === null) {
    return null;
  }
  let passed = 0;
  let failed = 0;
  for (const suite of report.testsuites) {
    for (const test of suite.testsuite) {
      // A disabled test has the status NOTRUN and no result.
      const isPassed = test.result === 'COMPLETED' && !test.failures;
      passed += isPassed ? 1 : 0;
      failed += isPassed ? 0 : 1;
    }
  }
  return { passed, failed };
}

/** Counts a report of node:test in TAP form; null when it has no summary. */
export function countTap(text) {
  const value = (name) => {
    const match = new RegExp(`^# ${name} (\\d+)$`, 'm').exec(text);
    return match === null ? null : Number(match[1]);
  };
  const [tests, passed] = [value('tests'), value('pass')];
  return tests === null || passed === null
    ? null
    : { passed, failed: tests - passed };
}

/** Counts the files that the compiler found an error in. */
export function countTypeErrors(files, output) {
  const faulty = files.filter((file) => output.includes(`${file}(`));
  return { passed: files.length - faulty.length, failed: faulty.length };
}

/** A suite that fails without a failed test to show for it still fails. */
export function reconcile(counts, isGood) {
  if (counts === null) {
    return { passed: 0, failed: 1 };
  }
  const isUnexplained = !isGood && counts.failed === 0;
  const isEmpty = counts.passed + counts.failed === 0;
  return isUnexplained || isEmpty ? { ...counts, failed: 1 } : counts;
}

async function runUnitTests(preset) {
  const report = path.join(resultsFolder, `unit-${preset}.json`);
  rmSync(report, { force: true });
  const { isGood } = await run(
    path.join(root, 'build', preset, 'unit_tests'),
    ['--gtest_brief=1', `--gtest_output=json:${report}`],
    {
      env: sanitizerOptions,
    },
  );
  const content =
    existsSync(report) ? JSON.parse(readFileSync(report, 'utf8')) : null;
  return reconcile(countGoogleTest(content), isGood);
}

function chooseFiles(files, beginnings, what) {
  if (beginnings === undefined) return files;
  return beginnings.split(',').flatMap((beginning) => {
    const found = files.filter(
      (file) => path.basename(file).startsWith(beginning));
    if (beginning === '' || found.length === 0) {
      throw new Error(`no test of ${what} begins with "${beginning}"`);
    }
    return found;
  });
}

/** All node:test files, or those of the module that begin as listed. */
export function moduleTestFiles(beginnings) {
  const files = filesIn('tests/module', '.test.mjs');
  if (beginnings === undefined) {
    return [...filesIn('tests/tooling', '.test.mjs'), ...files];
  }
  return chooseFiles(files, beginnings, 'the module');
}

async function runNodeTests(name, preset, files, limitMs = moduleTestLimitMs) {
  const report = path.join(resultsFolder, `${name}.tap`);
  rmSync(report, { force: true });
  const { isGood } = await run(process.execPath, [
    '--test',
    // One file at a time: each measures rates and times on a machine that may
    // have two cores.
    '--test-concurrency=1',
    `--test-timeout=${limitMs}`,
    '--test-reporter=spec',
    '--test-reporter-destination=stdout',
    '--test-reporter=tap',
    `--test-reporter-destination=${report}`,
    ...files,
  ], { env: presetEnvironment(preset) });
  const text = existsSync(report) ? readFileSync(report, 'utf8') : '';
  return reconcile(countTap(text), isGood);
}

async function runTypeTests() {
  const compiler = path.join(root, 'node_modules/typescript/bin/tsc');
  const { isGood, output } = await run(
    process.execPath,
    [compiler, '--noEmit', '--pretty', 'false', '-p', 'tests/types'],
    { keepOutput: true },
  );
  process.stdout.write(output);
  const files = filesIn('tests/types', '.test-d.ts');
  return reconcile(countTypeErrors(files, output), isGood);
}

function runSuite(name, preset) {
  const [kind, choice] = name.split(':');
  switch (kind) {
    case 'unit':
      return runUnitTests(choice ?? preset);
    case 'module':
      return runNodeTests('module', preset, moduleTestFiles(choice));
    case 'browser':
      return runNodeTests('browser', preset,
        filesIn('tests/browser', '.test.mjs'));
    case 'portal':
      return runNodeTests('portal', preset,
        filesIn('tests/portal', '.test.mjs'));
    case 'desktops':
      return runNodeTests('desktops', preset, chooseFiles(
        filesIn('tests/desktops', '.test.mjs'), choice, 'the desktops'));
    case 'package':
      return runNodeTests('package', preset,
        filesIn('tests/package', '.test.mjs'), suiteLimitMs);
    case 'clean-root':
      return runNodeTests('clean-root', preset,
        filesIn('tests/clean_root', '.test.mjs'), suiteLimitMs);
    case 'types':
      return runTypeTests();
    default:
      throw new Error(`unknown suite "${name}"`);
  }
}

/** The sum of several counts. */
export function addCounts(list) {
  return list.reduce(
    (sum, { passed, failed }) => ({
      passed: sum.passed + passed,
      failed: sum.failed + failed,
    }),
    { passed: 0, failed: 0 },
  );
}

async function main(args) {
  const { values: { results, preset }, positionals: suites } = parseArgs({
    args,
    options: {
      results: { type: 'string' },
      preset: { type: 'string', default: 'release' },
    },
    allowPositionals: true,
  });
  mkdirSync(resultsFolder, { recursive: true });
  const all = [];
  for (const suite of suites) {
    console.log(`\n== ${suite} ==`);
    const counts = await runSuite(suite, preset);
    console.log(
      `-- ${suite}: ${counts.passed} good, ${counts.failed} not --`);
    all.push(counts);
  }
  const total = addCounts(all);
  if (results !== undefined) {
    writeFileSync(results, `${total.passed} ${total.failed}\n`);
  }
  console.log(`\n${total.passed} passed, ${total.failed} failed`);
  return total.failed === 0 ? 0 : 1;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  process.exitCode = await main(process.argv.slice(2));
}
