// Captures for a long time and reckons up what happened to every packet.
//
//   node tests/stress/run_soak.mjs [--minutes N] [--source cast|screen] [--seed N]
import { execFile } from 'node:child_process';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import process from 'node:process';
import { parseArgs, promisify } from 'node:util';
import { buildFlavour, runHost } from './host.mjs';
import { keepPlaying, startSurroundings } from
  './surroundings.mjs';

const run = promisify(execFile);
const megabyte = 1e6;
/** Resident memory may end this much higher than it began. */
const growthLimit = 8 * megabyte;
/** What an hour may add once a run is long enough to tell it from noise. */
const slopeLimit = 1 * megabyte;
const minutesToJudgeSlope = 60;
/** Sound and picture may move apart by this much from end to end. */
const driftLimitUs = 20_000;

const { values: options } = parseArgs({
  options: {
    minutes: { type: 'string', default: '10' },
    source: { type: 'string', default: 'cast' },
    seed: { type: 'string', default: '20240229' },
  },
});
const minutes = Number(options.minutes);
if (!(minutes > 0) || !['cast', 'screen'].includes(options.source)) {
  throw new Error('--minutes takes a number, --source "cast" or "screen"');
}

/** Decodes one branch to its end; how many pictures, what was wrong. */
async function decode(file) {
  const { stdout, stderr } = await run('ffprobe', [
    '-v', 'error', '-f', 'h264', '-count_frames', '-select_streams', 'v:0',
    '-show_entries', 'stream=nb_read_frames', '-of', 'csv=p=0', file,
  ], { maxBuffer: 1 << 26 });
  return { pictures: Number.parseInt(stdout, 10), errors: stderr };
}

const equal = (what, left, right) =>
  [what, left === right ? '' : `${left}, not ${right}`];

function judgeCounts({ stats, branchStats, branches, sounds }) {
  const delivered = branches.reduce((sum, { packets }) => sum + packets, 0);
  const { videoBridgeQueuedPackets: queued,
    videoBridgeDroppedPackets: dropped,
    videoBridgeSuppressedDeltaPackets: suppressed } = stats;
  return [
    equal('pictures: encoded = queued + dropped + suppressed',
      queued + dropped + suppressed, stats.framesEncoded),
    equal('pictures: delivered = queued', delivered, queued),
    equal('sound: captured = queued + dropped',
      stats.audioBridgeQueuedPackets + stats.audioBridgeDroppedPackets,
      stats.audioPacketsCaptured),
    equal('sound: delivered = queued', sounds, stats.audioBridgeQueuedPackets),
    ['the stalls made the queue overflow', dropped > 0 ? '' : 'no drops'],
    ...branchStats.map((branch, index) => equal(
      `branch ${index}: encoded = queued + dropped + suppressed`,
      branch.bridgeQueuedPackets + branch.bridgeDroppedPackets +
        branch.bridgeSuppressedDeltaPackets, branch.encodedFrames)),
  ];
}

async function judgeStreams({ branches }, folder) {
  const checks = [];
  for (const [index, { packets, broken }] of branches.entries()) {
    const { pictures, errors } =
      await decode(path.join(folder, `branch-${index}.h264`));
    checks.push(
      equal(`branch ${index}: every packet decodes`, pictures, packets),
      equal(`branch ${index}: without an error`, errors, ''),
      equal(`branch ${index}: no picture lacks its reference`, broken, 0));
  }
  return checks;
}

const mean = (values) =>
  values.reduce((sum, value) => sum + value, 0) / values.length;

/** The mean distance of sound and picture in the first and the last minute. */
const driftsAtEnds = ({ driftsUs }) =>
  [mean(driftsUs.slice(0, 6)), mean(driftsUs.slice(-6))];

function judgeFigures(result) {
  const { before, running, idle, after, slopePerHour } = result;
  const growth = running.memory - before.memory;
  const [first, last] = driftsAtEnds(result);
  return [
    ...['threads', 'descriptors'].map((key) => [
      `left no ${key} behind`,
      after[key] > idle[key] ? `${idle[key]} before, ${after[key]} after` : '',
    ]),
    ['kept its memory', growth > growthLimit
      ? `${(growth / megabyte).toFixed(1)} MB more` : ''],
    ['memory is level after the first ten minutes',
      minutes >= minutesToJudgeSlope && slopePerHour > slopeLimit
        ? `${(slopePerHour / megabyte).toFixed(2)} MB an hour` : ''],
    ['sound and picture stay together',
      Math.abs(last - first) > driftLimitUs
        ? `${Math.round(first)} us apart, then ${Math.round(last)}` : ''],
  ];
}

function printFigures(result) {
  const { stats, branchStats, branches, stalls } = result;
  console.log(`  ${stalls.count} stalls of ${stalls.seconds.toFixed(1)} s ` +
    'in all');
  console.log('  pictures: ' + ['framesEncoded', 'videoBridgeQueuedPackets',
    'videoBridgeDroppedPackets', 'videoBridgeSuppressedDeltaPackets']
    .map((key) => `${key} ${stats[key]}`).join(', '));
  console.log('  sound: ' + ['audioPacketsCaptured',
    'audioBridgeQueuedPackets', 'audioBridgeDroppedPackets']
    .map((key) => `${key} ${stats[key]}`).join(', '));
  branchStats.forEach((branch, index) => {
    console.log(`  branch ${index}: ${branches[index].packets} packets, ` +
      `${branches[index].keyframes} keyframes, ` +
      `${branch.bridgeDroppedPackets} dropped, ` +
      `${branch.bridgeSuppressedDeltaPackets} suppressed`);
  });
  const memory = [result.before, ...result.memory.map((value) =>
    ({ memory: value })), result.running].map(({ memory: value }) => value);
  const shown = (value) => (value / megabyte).toFixed(1);
  console.log(`  memory: ${shown(memory[0])} MB at the start, ` +
    `${shown(memory.at(-1))} MB at the end, at most ` +
    `${shown(Math.max(...memory))} MB, ` +
    `${(result.slopePerHour / megabyte).toFixed(2)} MB an hour`);
  const [first, last] = driftsAtEnds(result);
  console.log(`  sound and picture: ${(first / 1000).toFixed(2)} ms apart in ` +
    `the first minute, ${(last / 1000).toFixed(2)} ms in the last`);
  console.log(`  threads: ${result.idle.threads} -> ${result.after.threads}, ` +
    `descriptors: ${result.idle.descriptors} -> ` +
    `${result.after.descriptors}`);
}

async function soak(folder) {
  const surroundings = await startSurroundings();
  const tones = keepPlaying(surroundings.session);
  try {
    return await runHost({
      flavour: 'release',
      program: 'soak.mjs',
      job: {
        seed: Number(options.seed),
        minutes,
        source: options.source,
        folder,
        sources: surroundings.sources,
      },
      environment: surroundings.environment,
    });
  } finally {
    await tones.stop();
    await surroundings.stop();
  }
}

async function main() {
  console.log(`${minutes} minutes of ${options.source}, seed ${options.seed}`);
  buildFlavour('release');
  const folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-soak-'));
  try {
    const { result, problems, errors } = await soak(folder);
    const checks =
      [['came to its end without a report', problems.join('; ')]];
    if (problems.length > 0) console.error(errors.slice(0, 100).join('\n'));
    if (result !== undefined) {
      printFigures(result);
      checks.push(...judgeCounts(result), ...judgeFigures(result),
        ...await judgeStreams(result, folder));
    }
    const bad = checks.filter(([, problem]) => problem !== '');
    for (const [name, problem] of checks) {
      console.log(problem === ''
        ? `  ok  ${name}` : `  NOT OK  ${name}: ${problem}`);
    }
    console.log(`\n${checks.length - bad.length} passed, ` +
      `${bad.length} failed`);
    return bad.length === 0 ? 0 : 1;
  } finally {
    await rm(folder, { recursive: true, force: true });
  }
}

try {
  process.exitCode = await main();
} catch (error) {
  console.error(error);
  console.log('\n0 passed, 1 failed');
  process.exitCode = 1;
}
