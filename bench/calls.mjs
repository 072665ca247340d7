// What single calls and functions cost: the JavaScript ones in a process of
// their own, the native ones in the program micro_benchmarks.
import { execFile, fork } from 'node:child_process';
import { once } from 'node:events';
import process from 'node:process';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { program } from './lib/programs.mjs';
import { startBenchScene } from './lib/scene.mjs';
import { formatTable, spreadText } from './lib/table.mjs';

const run = promisify(execFile);
const caller = fileURLToPath(new URL('lib/caller.mjs', import.meta.url));
const limitMs = 120_000;

async function callFigures(display, options) {
  const child = fork(caller, [JSON.stringify(options)], {
    env: { ...process.env, DISPLAY: display },
    stdio: ['ignore', 'ignore', 'ignore', 'ipc'],
  });
  const timer = setTimeout(() => child.kill('SIGKILL'), limitMs);
  try {
    const answer = await Promise.race([
      once(child, 'message').then(([message]) => message),
      once(child, 'exit').then(() => null),
    ]);
    if (answer === null) throw new Error('the calling process has ended');
    if (answer.error !== undefined) throw new Error(answer.error);
    return answer;
  } finally {
    clearTimeout(timer);
    child.kill('SIGKILL');
  }
}

async function microBenchmarks(markdown) {
  const { stdout } = await run(program('micro_benchmarks'), [
    '--benchmark_format=json', '--benchmark_repetitions=5',
    '--benchmark_min_time=0.1',
  ], { maxBuffer: 1 << 24 });
  const byName = new Map();
  for (const entry of JSON.parse(stdout).benchmarks) {
    if (entry.run_type !== 'iteration') continue;
    const entries = byName.get(entry.run_name) ?? [];
    byName.set(entry.run_name, [...entries, entry]);
  }
  return formatTable([
    ['function/size', 'ns', 'GB/s', 'samples/ns'],
    ...[...byName].map(([name, entries]) => [
      name,
      spreadText(entries.map(({ cpu_time: time }) => time), 0),
      spreadText(entries.map((entry) => entry.bytes_per_second), 2, 1e-9),
      spreadText(entries.map((entry) => entry.items_per_second), 2, 1e-9),
    ]),
  ], { markdown });
}

/** Measures all of it on `display`; resolves with lines to print. */
export async function measureCalls(display, { seconds, markdown }) {
  const scene = await startBenchScene(display, { kind: 'moving', hz: 60 });
  try {
    const figures = await callFigures(display, { seconds });
    const rows = Object.entries(figures)
      .map(([name, values]) => [name, spreadText(values, 2)]);
    return [
      formatTable([['call', 'median (least..greatest)'], ...rows],
        { markdown }),
      '',
      await microBenchmarks(markdown),
    ];
  } finally {
    await scene.stop();
  }
}
