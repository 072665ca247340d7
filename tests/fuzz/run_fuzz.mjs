// Fuzzes the native code that works on numbers, bytes and texts, the request
// parser, and what a publication reads from the network.
//
//   npm run test:fuzz [-- --seconds N]     N seconds for each, default 20
//
// What breaks a rule is left in build/fuzz/found; mended, it belongs into
// tests/fuzz/corpus, which every "npm test" runs again.
import { spawn, spawnSync } from 'node:child_process';
import { existsSync, mkdirSync, readdirSync } from 'node:fs';
import { availableParallelism } from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('../..', import.meta.url));
const buildFolder = path.join(root, 'build/fuzz');
const foundFolder = path.join(buildFolder, 'found');

/** The subjects: each has a file NAME_fuzz.cc. */
function subjects() {
  return readdirSync(path.join(root, 'tests/fuzz'))
    .filter((name) => name.endsWith('_fuzz.cc'))
    .map((name) => name.replace('_fuzz.cc', ''))
    .sort();
}

function secondsOf(args) {
  if (args.length === 0) return 20;
  const seconds = args[0] === '--seconds' ? Number(args[1]) : NaN;
  if (!(seconds >= 1) || args.length !== 2) {
    throw new Error('usage: npm run test:fuzz [-- --seconds N]');
  }
  return Math.round(seconds);
}

function mustRun(command, args) {
  const { status, error } = spawnSync(command, args,
    { cwd: root, stdio: ['ignore', 'inherit', 'inherit'] });
  if (error) throw error;
  if (status !== 0) throw new Error(`"${command} ${args[0]}" failed`);
}

/** Runs a fuzzer to its end; resolves with its status and all it printed. */
function run(command, args, { env = process.env, timeoutMs }) {
  return new Promise((resolve, reject) => {
    const child = spawn(command, args, {
      cwd: root, env, timeout: timeoutMs, killSignal: 'SIGKILL',
      stdio: ['ignore', 'pipe', 'pipe'],
    });
    const texts = { stdout: '', stderr: '' };
    for (const name of ['stdout', 'stderr']) {
      child[name].setEncoding('utf8').on('data', (text) => {
        // A few thousand refused requests write a stage line each.
        texts[name] = (texts[name] + text).slice(-100_000);
      });
    }
    child.once('error', reject);
    child.once('close', (code) => resolve({ code, ...texts }));
  });
}

/** How much of the files under test was run, in percent. */
function coverageOf(name, program) {
  const raw = path.join(buildFolder, `${name}.profraw`);
  const merged = path.join(buildFolder, `${name}.profdata`);
  const merge = spawnSync('llvm-profdata', ['merge', '-o', merged, raw]);
  if (merge.status !== 0) return 'no coverage';
  const { stdout } = spawnSync('llvm-cov',
    ['export', '--summary-only', `--instr-profile=${merged}`, program],
    { encoding: 'utf8' });
  const sources = ['src', 'programs'].map((folder) =>
    path.join(root, folder) + path.sep);
  const files = JSON.parse(stdout).data[0].files
    .filter(({ filename }) => filename.endsWith('.cc') &&
      sources.some((folder) => path.resolve(filename).startsWith(folder)));
  const percent = (kind) => {
    const sum = (key) => files.reduce(
      (total, { summary }) => total + summary[kind][key], 0);
    return Math.round(100 * sum('covered') / sum('count'));
  };
  return `${percent('lines')} % of lines, ${percent('branches')} % of branches`;
}

async function fuzzSubject(name, seconds) {
  const program = path.join(buildFolder, 'tests/fuzz', `fuzz_${name}`);
  const grown = path.join(buildFolder, 'corpus', name);
  const saved = path.join(root, 'tests/fuzz/corpus', name);
  mkdirSync(grown, { recursive: true });
  const { code, stderr } = await run(program, [
    `-max_total_time=${seconds}`, '-max_len=512', '-print_final_stats=1',
    `-artifact_prefix=${path.join(foundFolder, `${name}-`)}`,
    grown, ...existsSync(saved) ? [saved] : [],
  ], {
    env: {
      ...process.env,
      LLVM_PROFILE_FILE: path.join(buildFolder, `${name}.profraw`),
    },
    timeoutMs: (seconds + 60) * 1000,
  });
  const executions =
    /number_of_executed_units: (\d+)/.exec(stderr)?.[1] ?? 'unknown';
  console.log(`${name}: ${executions} executions, ` +
    coverageOf(name, program));
  if (code === 0) return true;
  console.log(stderr.split('\n').slice(-40).join('\n'));
  return false;
}

/** A program that prints what became of its properties, by their names. */
async function fuzzProgram(name, program, seconds) {
  const seed = Date.now() % 2 ** 31;
  const { code, stdout, stderr } = await run(process.execPath, [
    path.join(root, 'tests/support', program),
    String(2 ** 31 - 1), String(seconds / 2), String(seed),
  ], { timeoutMs: (seconds + 120) * 1000 });
  try {
    const results = Object.values(JSON.parse(stdout));
    const runs = results.reduce((sum, result) => sum + (result.runs ?? 0), 0);
    console.log(`${name}: ${runs} executions, seed ${seed}`);
    if (code === 0 && !results.some(({ failed }) => failed)) return true;
  } catch {
    // It did not come to its report.
  }
  console.log(stdout, stderr.slice(-2_000));
  return false;
}

/** Runs the jobs on all processors; resolves with what they returned. */
async function inParallel(jobs) {
  const results = [];
  const queue = [...jobs];
  await Promise.all(Array.from({ length: availableParallelism() }, async () => {
    while (queue.length > 0) results.push(await queue.shift()());
  }));
  return results;
}

async function main(args) {
  const seconds = secondsOf(args);
  mustRun('cmake', ['--preset', 'fuzz']);
  mustRun('cmake', ['--build', '--preset', 'fuzz',
    '--parallel', String(availableParallelism())]);
  mkdirSync(foundFolder, { recursive: true });
  const results = await inParallel([
    ...subjects().map((name) => () => fuzzSubject(name, seconds)),
    () => fuzzProgram('requests', 'capture_request_fuzz.mjs', seconds),
    () => fuzzProgram('publication', 'publish_fuzz.mjs', seconds),
  ]);
  const passed = results.filter(Boolean).length;
  console.log(`\n${passed} passed, ${results.length - passed} failed`);
  return passed === results.length ? 0 : 1;
}

try {
  process.exitCode = await main(process.argv.slice(2));
} catch (error) {
  console.error(`fuzz: ${error.message}`);
  console.log('\n0 passed, 1 failed');
  process.exitCode = 1;
}
