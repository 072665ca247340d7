// What the module is meant to reach, judged on the runs of one scenario.
import { median, pairedRatios, quantile } from './figures.mjs';

const processorTargets = [
  { side: 'gst', most: 0.70 },
  { side: 'gst-colour', most: 0.85 },
];
const peers = ['gst', 'gst-colour', 'ffmpeg'];

const processor = (runs) =>
  runs.map(({ processorPerSecond }) => processorPerSecond);

/** Megapixels of different pictures that a run delivered in a second. */
function deliveredMegapixels(run, scenario, seconds) {
  return scenario.branches.reduce((sum, { width, height }, i) => {
    const { distinct, delivered } = run.branches[i];
    return sum + ((distinct ?? delivered) * width * height) / 1e6 / seconds;
  }, 0);
}

/** Processor milliseconds for each of these megapixels. */
export const costOfMegapixel = (run, scenario, seconds) =>
  (run.processorPerSecond * 1000) /
  deliveredMegapixels(run, scenario, seconds);

const lostIn = (run) =>
  run.branches.reduce((sum, { lost }) => sum + (lost ?? 0), 0);

// Below this no pipeline around the same encoder can come.
function floorText(results, side) {
  if (!(results.limit?.length > 0)) return '';
  const floor = median(pairedRatios(
    results.limit.map(({ encodingPerSecond }) => encodingPerSecond),
    processor(results[side])));
  return `; the bare encoders alone ${floor.toFixed(2)}`;
}

function judgeProcessor(results, scenario, seconds) {
  return processorTargets
    .filter(({ side }) => results[side]?.length > 0)
    .map(({ side, most }) => {
      const ratios =
        pairedRatios(processor(results.module), processor(results[side]));
      const costs = (runs) =>
        runs.map((run) => costOfMegapixel(run, scenario, seconds));
      const byPixel =
        median(pairedRatios(costs(results.module), costs(results[side])));
      const middle = median(ratios);
      return {
        text: `processor time ${middle.toFixed(2)} of ${side}'s ` +
          `(${Math.min(...ratios).toFixed(2)}..` +
          `${Math.max(...ratios).toFixed(2)}; ${byPixel.toFixed(2)} for what ` +
          `was delivered${floorText(results, side)}), at most ` +
          most.toFixed(2),
        isMet: middle <= most,
      };
    });
}

function judgeLoss(results, known) {
  const lost = (side) => median(results[side].map(lostIn));
  const least = Math.min(...known.map(lost));
  return {
    text: `${lost('module')} pictures lost in a run, ` +
      `the best of the others ${least}`,
    isMet: lost('module') <= least,
  };
}

const latencyOf = (runs, branch) =>
  median(runs.map((run) => run.branches[branch].latencyNs)) / 1e6;

function judgeLatency(results, known) {
  const own = latencyOf(results.module, 0);
  const least = Math.min(...known.map((side) => latencyOf(results[side], 0)));
  return {
    text: `latency of the first branch ${own.toFixed(1)} ms, ` +
      `the best of the others ${least.toFixed(1)} ms`,
    isMet: own <= least,
  };
}

function judgeTail(results, scenario) {
  const factors = scenario.branches.map((_, i) =>
    median(results.module.map(({ branches }) =>
      branches[i].latencyP99Ns / branches[i].latencyNs)));
  const worst = quantile(factors, 1);
  return {
    text: `p99 of the latency ${worst.toFixed(2)} times its median in the ` +
      'worst branch, at most 2',
    isMet: worst <= 2,
  };
}

/**
 * Every target that the sides that ran allow to judge; `results` has a list of
 * runs for the name of each side.
 */
export function judge(results, scenario, seconds) {
  if (!(results.module?.length > 0)) return [];
  const known = peers.filter((side) => results[side]?.length > 0);
  return [
    ...judgeProcessor(results, scenario, seconds),
    ...(known.length > 0
      ? [judgeLoss(results, known), judgeLatency(results, known)]
      : []),
    judgeTail(results, scenario),
  ];
}
