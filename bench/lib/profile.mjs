// Where the module's processor time goes.
import { execFile } from 'node:child_process';
import path from 'node:path';
import { promisify } from 'node:util';

import { findCommand } from '../../scripts/packages.mjs';
import { threadSeconds } from './processor.mjs';
import { measureWindow, startSide } from './side_run.mjs';
import { sides } from './sides.mjs';
import { formatTable } from './table.mjs';
import { makeFolder, removeFolder } from './temporary_folder.mjs';

const run = promisify(execFile);

const isSource = (thread) => /^(ximagesrc|pipewiresrc)/.test(thread);
const isConverting = (thread) => thread === 'queue0:src';
const isBranch = (thread) => /^queue[1-9]\d*:src$/.test(thread);
const isNode = (thread) =>
  /^(node|pool-node|MainThread|DelayedTask|libuv)/.test(thread);

/** What a thread of a software capture is there for, by GStreamer's name. */
export function purposeOf(thread) {
  if (isSource(thread)) return 'source';
  if (isConverting(thread)) return 'conversion';
  if (isBranch(thread)) return 'scaling, encoder and packets';
  if (isNode(thread)) return 'JavaScript';
  return 'rest';
}

/**
 * The stage that a sample belongs to, by thread, library and function. What a
 * converting thread does in shared libraries is conversion, and so on: memory
 * is copied on behalf of somebody.
 */
function stageOf({ thread, library, symbol }) {
  if (isNode(thread)) return 'JavaScript';
  if (isSource(thread)) return 'source';
  if (isConverting(thread)) return 'conversion';
  if (!isBranch(thread)) return 'rest';
  if (/^libopenh264/.test(library)) return 'encoder';
  if (/^(libgstvideo|orcexec|liborc)/.test(library)) return 'conversion';
  if (/^linux_capture_addon/.test(library)) {
    return /conver|scal|area|weigh/i.test(symbol)
      ? 'conversion' : 'packets and bridge';
  }
  return 'rest';
}

const stages = [
  'source', 'conversion', 'encoder', 'packets and bridge', 'JavaScript', 'rest',
];

/** Lines "PERCENT%|THREAD|LIBRARY|SYMBOL" of perf, in parts of one by stage. */
export function stageShares(text) {
  const shares = new Map(stages.map((stage) => [stage, 0]));
  for (const line of text.split('\n')) {
    const [percent, thread, library, symbol] =
      line.split('|').map((field) => field.trim());
    if (!/^[\d.]+%$/.test(percent) || library === undefined) continue;
    const stage = stageOf({ thread, library, symbol: symbol ?? '' });
    shares.set(stage, shares.get(stage) + parseFloat(percent) / 100);
  }
  return shares;
}

async function sampleWithPerf(pid, seconds, folder) {
  const data = path.join(folder, 'perf.data');
  await run('perf', [
    'record', '-q', '-e', 'cpu-clock', '-F', '997', '-p', String(pid),
    '-o', data, '--', 'sleep', String(seconds),
  ]);
  const { stdout } = await run('perf', [
    'report', '-q', '--stdio', '-i', data, '--sort', 'comm,dso,sym',
    '-F', 'overhead,comm,dso,sym', '-t', '|',
  ], { maxBuffer: 1 << 28 });
  return stageShares(stdout);
}

const percent = (part) => `${(part * 100).toFixed(1)} %`;

function threadTable(before, after, seconds, markdown) {
  const sums = new Map();
  for (const [id, { name, seconds: end }] of after) {
    const label = `${isNode(name) ? 'node' : name}|${purposeOf(name)}`;
    const used = end - (before.get(id)?.seconds ?? 0);
    sums.set(label, (sums.get(label) ?? 0) + used);
  }
  const total = [...sums.values()].reduce((sum, used) => sum + used, 0);
  return formatTable([
    ['thread', 'for', 'processor s/s', 'share'],
    ...[...sums].sort(([, a], [, b]) => b - a).map(([label, used]) =>
      [
        ...label.split('|'), (used / seconds).toFixed(3), percent(used / total),
      ]),
  ], { markdown, leftColumns: 2 });
}

/** Profiles the module in one scenario; resolves with lines to print. */
export async function profileModule(scenario, scene, { seconds, markdown }) {
  const folder = makeFolder('profile');
  const side = sides.find(({ name }) => name === 'module');
  try {
    const running = await startSide(side, scenario, scene.display, folder);
    try {
      const [pid] = running.pids;
      const before = threadSeconds(pid);
      const window = await measureWindow(running.pids, seconds);
      const after = threadSeconds(pid);
      const lines = [threadTable(before, after, seconds, markdown), ''];
      if (findCommand('perf') === null) {
        lines.push('with perf installed, shares by stage are shown as well');
        return lines;
      }
      const shares = await sampleWithPerf(pid, seconds, folder);
      lines.push(formatTable([
        ['stage', 'processor s/s', 'share'],
        ...[...shares].map(([stage, share]) => [
          stage, (share * window.processorPerSecond).toFixed(3), percent(share),
        ]),
      ], { markdown }));
      return lines;
    } finally {
      await running.end();
    }
  } finally {
    removeFolder(folder);
  }
}
