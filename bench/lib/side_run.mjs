// One run of one side: start, let it settle, measure a window, stop, and read
// the figures out of what it delivered.
import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { setTimeout as sleep } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

import {
  collectText, endHelper, startHelper, waitForText,
} from '../../tests/support/processes.mjs';
import { arrivalsOf, splitAccessUnits } from './access_units.mjs';
import { runBareEncoder } from './bare_encoder.mjs';
import { readNumbers } from './decoding.mjs';
import {
  continuityOf, latenciesNs, quantile, steadinessOf,
} from './figures.mjs';
import { messageFrom } from './messages.mjs';
import {
  machineSeconds, peakMemory, processorSeconds, sumOver,
} from './processor.mjs';
import { qualityOf } from './quality.mjs';
import { stagesCommand } from './sides.mjs';
import { makeFolder, removeFolder } from './temporary_folder.mjs';

const hostProgram = fileURLToPath(new URL('host.mjs', import.meta.url));
const settlingMs = 1500;
const startLimitMs = 30_000;

const now = () => Number(process.hrtime.bigint());

/** Measures these processes for a while; `during` may watch them meanwhile. */
export async function measureWindow(pids, seconds, during = async () => {}) {
  const beginNs = now();
  const before = sumOver(pids, processorSeconds);
  const machineBefore = machineSeconds();
  await Promise.all([sleep(seconds * 1000), during()]);
  const after = sumOver(pids, processorSeconds);
  const machineAfter = machineSeconds();
  const endNs = now();
  const length = (endNs - beginNs) / 1e9;
  const processorPerSecond = (after - before) / length;
  return {
    beginNs,
    endNs,
    processorPerSecond,
    elsewherePerSecond:
      (machineAfter - machineBefore) / length - processorPerSecond,
    peakMemory: sumOver(pids, peakMemory),
  };
}

/** Starts the host of a side and resolves once every branch delivers. */
export async function startSide(side, scenario, display, folder) {
  const child = startHelper(process.execPath, [hostProgram], {
    env: { ...process.env, DISPLAY: display },
    stdio: ['ignore', 'ignore', 'pipe', 'ipc'],
  });
  const errors = collectText(child.stderr);
  try {
    child.send({ sideName: side.name, scenario, display, folder });
    const { pids, firstNs } =
      await messageFrom(child, 'flowing', startLimitMs);
    await sleep(settlingMs);
    return {
      pids,
      firstNs,
      async finish() {
        child.send('stop');
        await messageFrom(child, 'written', startLimitMs);
        if (child.exitCode === null) await once(child, 'exit');
      },
      end: () => endHelper(child, 'SIGKILL'),
    };
  } catch (error) {
    await endHelper(child, 'SIGKILL');
    throw new Error(
      `${side.name}: ${error.message}\n${errors.text.slice(-1000)}`);
  }
}

/** The figures of a branch that has been written to `folder`. */
export async function readBranch(folder, index, context) {
  const { scenario, scene, window, isJudged = true } = context;
  const branch = scenario.branches[index];
  const file = path.join(folder, `${index}.h264`);
  const bytes = readFileSync(file);
  const chunks = JSON.parse(
    readFileSync(path.join(folder, `${index}.json`), 'utf8'));
  const units = splitAccessUnits(bytes);
  const arrivals = arrivalsOf(units, chunks);
  const numbers = await readNumbers(file);
  // The end of a stream may have been cut in mid-picture.
  if (numbers.length < units.length - 1 || numbers.length > units.length) {
    throw new Error(
      `${numbers.length} of ${units.length} pictures could be decoded`);
  }
  const pictures = numbers.map((number, i) =>
    ({ number, arrivalNs: arrivals[i], bytes: units[i].end - units[i].begin }));
  const drawnNs = scene.drawnNs();
  const inWindow = (picture) => picture.arrivalNs >= window.beginNs &&
    picture.arrivalNs < window.endNs;
  const seconds = (window.endNs - window.beginNs) / 1e9;
  const latencies = latenciesNs(pictures, drawnNs, window);
  const branchNs = 1e9 / branch.fps;
  return {
    ...(scenario.scene.kind !== 'still'
      ? continuityOf(pictures, drawnNs, window,
        { branchNs, sceneNs: 1e9 / scenario.scene.hz })
      : steadinessOf(pictures, window, branchNs)),
    unreadable: pictures.filter((picture) =>
      picture.number === null && inWindow(picture)).length,
    latencyNs: quantile(latencies, 0.5),
    latencyP99Ns: quantile(latencies, 0.99),
    bitrate: pictures.filter(inWindow)
      .reduce((sum, picture) => sum + picture.bytes * 8, 0) / seconds,
    quality: isJudged
      ? await qualityOf(
        file, branch, scenario.scene.kind,
        pictures.map((picture, position) => ({ ...picture, position }))
          .filter((picture) => picture.number !== null && inWindow(picture)))
      : null,
  };
}

/** Runs a side that delivers packets. */
async function runDelivering(side, scenario, { scene, seconds, folder }) {
  const running = await startSide(side, scenario, scene.display, folder);
  let window;
  try {
    window = await measureWindow(running.pids, seconds);
    await running.finish();
  } finally {
    await running.end();
  }
  const branches = [];
  for (let i = 0; i < scenario.branches.length; i += 1) {
    branches.push(await readBranch(folder, i, { scenario, scene, window }));
  }
  return {
    processorPerSecond: window.processorPerSecond,
    elsewherePerSecond: window.elsewherePerSecond,
    peakMemory: window.peakMemory,
    firstNs: running.firstNs,
    branches,
  };
}

/** Runs the pipeline without an encoder, then the encoder alone. */
async function runLimit(scenario, { scene, seconds, folder }) {
  const [command, ...args] = stagesCommand(scenario);
  const child = startHelper(command, args, {
    env: { ...process.env, DISPLAY: scene.display },
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  const output = collectText(child.stdout);
  let window;
  try {
    await waitForText(child, output, /New clock/, 'the pipeline plays');
    await sleep(settlingMs);
    window = await measureWindow([child.pid], seconds);
  } finally {
    await endHelper(child);
  }
  const encoders = [];
  for (const branch of scenario.branches) {
    encoders.push(
      await runBareEncoder(branch, scenario.scene, seconds, folder));
  }
  const encoding = encoders.reduce((sum, { perSecond }) => sum + perSecond, 0);
  return {
    processorPerSecond: window.processorPerSecond + encoding,
    elsewherePerSecond: window.elsewherePerSecond,
    stagesPerSecond: window.processorPerSecond,
    encodingPerSecond: encoding,
    branches: encoders.map(({ bitrate, quality }) => ({ bitrate, quality })),
  };
}

/** Runs one side once and returns its figures. */
export async function runSide(side, scenario, options) {
  const folder = makeFolder('bench');
  try {
    return side.name === 'limit'
      ? await runLimit(scenario, { ...options, folder })
      : await runDelivering(side, scenario, { ...options, folder });
  } finally {
    removeFolder(folder);
  }
}

