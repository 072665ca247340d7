import { readFileSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';

import {
  collectText, endHelper, startHelper, waitForText,
} from '../../tests/support/processes.mjs';
import { program } from './programs.mjs';
import { screen, sizeOf } from './scenarios.mjs';
import { makeFolder, removeFolder } from './temporary_folder.mjs';

/** The drawing time of every picture in a log of bench_scene. */
export function parseDrawnNs(text) {
  const drawnNs = new Map();
  for (const line of text.split('\n')) {
    const match = /^(\d+) (\d+)$/.exec(line);
    if (match !== null) drawnNs.set(Number(match[1]), Number(match[2]));
  }
  return drawnNs;
}

/** Shows one of the benchmark's scenes on `display`. */
export async function startBenchScene(
  display, { kind, hz, size = screen }) {
  const folder = makeFolder('scene');
  const log = path.join(folder, 'drawn');
  const child = startHelper(program('bench_scene'), [
    '--size', sizeOf(size), '--log', log, '--scene', kind, '--hz', String(hz),
  ], {
    env: { ...process.env, DISPLAY: display },
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  const errors = collectText(child.stderr);
  const stop = async () => {
    await endHelper(child);
    removeFolder(folder);
  };
  try {
    await waitForText(
      child, collectText(child.stdout), /ready/, 'the scene is shown');
  } catch (error) {
    await stop();
    throw new Error(`${error.message}\n${errors.text}`);
  }
  return {
    display,
    pid: child.pid,
    drawnNs: () => parseDrawnNs(readFileSync(log, 'utf8')),
    stop,
  };
}
