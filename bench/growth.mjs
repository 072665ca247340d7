// How the cost of a capture grows with what is asked for: the module's processor
// time and, of the same run, that which the encoder alone spends.
import { execFile } from 'node:child_process';
import path from 'node:path';
import process from 'node:process';
import { promisify } from 'node:util';

import { startXvfb } from '../tests/support/xvfb.mjs';
import { median } from './lib/figures.mjs';
import { growthFigures, hasPerf } from './lib/growth_figures.mjs';
import { growthPoints } from './lib/growth_points.mjs';
import { startBenchScene } from './lib/scene.mjs';
import { measureWindow, readBranch, startSide } from './lib/side_run.mjs';
import { sides } from './lib/sides.mjs';
import { formatTable } from './lib/table.mjs';
import { makeFolder, removeFolder } from './lib/temporary_folder.mjs';

const run = promisify(execFile);
const moduleSide = sides.find(({ name }) => name === 'module');

const headings = ['capture', 'ms/Mpixel', 'encoder', 'not the encoder',
  'a picture', 'memory', 'pictures/s', 'left out', 'longest gap', 'latency',
  'p99'];

// Of the whole machine where that is allowed: sampling of single threads is
// switched on and off with each of them, which a small picture with its dozen
// switches pays for. 360p seemed to cost 30 % besides the encoder instead of 20.
async function record(pid, seconds, data) {
  // OpenH264 copies pictures with the C library: such a sample is told by the
  // frames above it, which need little of the stack.
  const sampling = ['record', '-q', '-e', 'cpu-clock', '-F', '997',
    '--call-graph', 'dwarf,1024', '-o', data];
  const length = ['--', 'sleep', String(seconds)];
  try {
    await run('perf', [...sampling, '-a', ...length]);
  } catch {
    await run('perf', [...sampling, '-p', String(pid), ...length]);
  }
}

async function samples(pid, seconds, folder) {
  const data = path.join(folder, 'perf.data');
  await record(pid, seconds, data);
  // "report" would count other processes of the same name.
  const { stdout } = await run('perf', ['script', '-i', data,
    '--pid', String(pid), '-F', 'ip,dso'], { maxBuffer: 1 << 28 });
  return stdout;
}

async function runPoint(point, { seconds }) {
  const folder = makeFolder('growth');
  const xvfb = await startXvfb(point.screen);
  try {
    const scene = await startBenchScene(xvfb.display,
      { ...point.scene, size: point.screen });
    try {
      const running =
        await startSide(moduleSide, point, xvfb.display, folder);
      let window;
      let sampled;
      try {
        window = await measureWindow(running.pids, seconds, async () => {
          sampled = await samples(running.pids[0], seconds, folder);
        });
        await running.finish();
      } finally {
        await running.end();
      }
      const branches = [];
      for (let i = 0; i < point.branches.length; i += 1) {
        branches.push(await readBranch(folder, i,
          { scenario: point, scene, window, isJudged: false }));
      }
      return growthFigures(point, { window, sampled, branches });
    } finally {
      await scene.stop();
    }
  } finally {
    await xvfb.stop();
    removeFolder(folder);
  }
}

const percent = (part) => `${(part * 100).toFixed(1)} %`;
const ms = (ns, digits = 0) =>
  (ns === null ? '-' : `${(ns / 1e6).toFixed(digits)} ms`);

function row(point, figures) {
  const [first] = figures;
  const middle = (name) => median(figures.map((entry) => entry[name]));
  return [
    point.name, middle('cost').toFixed(2), middle('encoderCost').toFixed(2),
    percent(middle('otherShare')), ms(middle('otherNsOfPicture'), 2),
    `${(first.memory / 1e6).toFixed(0)} MB`,
    `${middle('rate').toFixed(1)} of ${point.branches[0].fps}`,
    String(middle('leftOut')), `${middle('gapPeriods').toFixed(1)} periods`,
    ms(middle('latencyNs')), `${middle('p99Periods').toFixed(1)} periods`,
  ];
}

/** Measures every point; resolves with lines to print. */
export async function measureGrowth({ seconds, runs, quick, markdown }) {
  if (!hasPerf()) {
    throw new Error('--growth tells the encoder apart with "perf", which is ' +
      'not installed (Debian: linux-perf)');
  }
  const points = growthPoints(quick);
  const rows = [headings];
  const remarks = [];
  for (const point of points) {
    const figures = [];
    for (let i = 1; i <= runs; i += 1) {
      process.stderr.write(`${point.name}, run ${i} of ${runs}\n`);
      figures.push(await runPoint(point, { seconds }));
    }
    rows.push(row(point, figures));
    remarks.push(...new Set(figures.flatMap((entry) => entry.remarks)
      .map((text) => `${point.name}: ${text}`)));
  }
  return [formatTable(rows, { markdown }), '', ...remarks];
}
