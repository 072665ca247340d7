import { spawnSync } from 'node:child_process';
import { existsSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { presetEnvironment, sanitizerOptions } from '../../scripts/run_tests.mjs';
import { startHelper } from '../support/processes.mjs';

const root = fileURLToPath(new URL('../..', import.meta.url));

/** No sign of life for this long is a hang, whatever the machine does. */
const silenceLimitMs = 120_000;

// Whoever interrupts a long run wants its helpers ended as well.
for (const signal of ['SIGINT', 'SIGTERM']) {
  process.once(signal, () => process.exit(1));
}

/** The presets of the module that can be put under stress. */
export const flavours = ['release', 'asan', 'tsan'];

const runtimes = { asan: 'libasan.so', tsan: 'libtsan.so' };
const ownLibraries = { tsan: 'libglib_sync.so' };

function run(command, args) {
  const { status, stdout, error } = spawnSync(command, args,
    { cwd: root, encoding: 'utf8', stdio: ['ignore', 'pipe', 'inherit'] });
  if (status === 0) return stdout;
  throw new Error(error?.message ?? `"${command} ${args.join(' ')}" failed:\n` +
    stdout);
}

/** Builds the module of one preset and what it needs beside it. */
export function buildFlavour(flavour) {
  const targets = { release: ['scene', 'producer'], tsan: ['glib_sync'] };
  run('cmake', ['--preset', flavour]);
  run('cmake', ['--build', '--preset', flavour, '--parallel', '--target',
    'linux_capture_addon', ...targets[flavour] ?? []]);
}

/** What goes into a process before everything else. */
function preloadedBy(flavour) {
  if (runtimes[flavour] === undefined) return [];
  const file = run('c++', [`-print-file-name=${runtimes[flavour]}`]).trim();
  if (!existsSync(file)) throw new Error(`${runtimes[flavour]} is missing`);
  const own = ownLibraries[flavour];
  return [file, ...own ? [path.join(root, 'build', flavour, own)] : []];
}

/** Everything that a sanitizer, GLib or a dying process has to complain of. */
const complaint = new RegExp([
  'ERROR: (Address|Leak)Sanitizer', 'WARNING: ThreadSanitizer',
  'runtime error:', ' \\*\\*: ', 'terminate called', 'Fatal error',
].join('|'));

/** What standard error holds besides the lines of an ordinary capture. */
const ordinary = /^\[linux_capture_stage\] |^\[OpenH264\] /;

/**
 * Runs one program of this folder as the host of one preset's module and tells
 * how it ended: { result, problems, errors }. `result` is undefined when it did
 * not come to its end.
 */
export async function runHost({
  flavour, program, job, environment, onProgress = () => {},
}) {
  const preloaded = preloadedBy(flavour);
  // The addresses that the thread sanitizer counts on are not always left
  // free by a kernel that lays them out at random.
  const [command, ...before] = flavour === 'tsan'
    ? ['setarch', '--addr-no-randomize', process.execPath]
    : [process.execPath];
  const child = startHelper(command,
    [...before, '--expose-gc', path.join(root, 'tests/stress', program)], {
      cwd: root,
      env: {
        ...environment,
        ...sanitizerOptions,
        // With one arena for each thread, memory that is free and in use again
        // moves about between them, by more than a leak would add.
        MALLOC_ARENA_MAX: '1',
        // Whole stacks of every allocation take most of the time; this much
        // of them is enough for the suppressions.
        ASAN_OPTIONS:
          `${sanitizerOptions.ASAN_OPTIONS}:malloc_context_size=10`,
        ...preloaded.length > 0 && { LD_PRELOAD: preloaded.join(':') },
        ...presetEnvironment(flavour),
        LINUX_CAPTURE_JOB: JSON.stringify(job),
      },
      stdio: ['ignore', 'pipe', 'pipe'],
    });
  const problems = [];
  const errors = [];
  let result;
  let last = 'none';
  let watchdog;
  const feedWatchdog = () => {
    clearTimeout(watchdog);
    watchdog = setTimeout(() => {
      problems.push(`hung; its last sign of life was: ${last}`);
      child.kill('SIGKILL');
    }, silenceLimitMs);
  };
  feedWatchdog();
  const onLine = (line) => {
    const [kind] = line.split(' ', 1);
    const rest = line.slice(kind.length + 1);
    if (kind === 'result') result = JSON.parse(rest);
    if (kind !== 'progress') return;
    last = rest;
    feedWatchdog();
    onProgress(rest);
  };
  readLines(child.stdout, onLine);
  readLines(child.stderr, (line) => {
    if (!ordinary.test(line) && line !== '') errors.push(line);
  });
  const { code, signal } = await new Promise((resolve, reject) => {
    child.once('error', reject);
    child.once('close', (...args) => resolve(
      { code: args[0], signal: args[1] }));
  });
  clearTimeout(watchdog);
  if (code !== 0) problems.push(`ended with ${signal ?? `status ${code}`}`);
  const complaints = errors.filter((line) => complaint.test(line));
  if (complaints.length > 0) {
    problems.push(`${complaints.length} reports, the first: ${complaints[0]}`);
  }
  if (result === undefined) problems.push('told no figures');
  return { result, problems, errors };
}

function readLines(stream, onLine) {
  let rest = '';
  stream.setEncoding('utf8').on('data', (chunk) => {
    const lines = (rest + chunk).split('\n');
    rest = lines.pop();
    lines.forEach(onLine);
  });
  stream.on('end', () => onLine(rest));
}
