// The arithmetic of "--growth".
import { findCommand } from '../../scripts/packages.mjs';

/** The part of perf's samples, "ADDRESS (LIBRARY)" a line, in the encoder. */
export function encoderShare(text) {
  let encoder = 0;
  let total = 0;
  for (const line of text.split('\n')) {
    const [, library] = /^\s*[0-9a-f]+.*\((.+)\)\s*$/.exec(line) ?? [];
    if (library === undefined) continue;
    total += 1;
    if (/(^|\/)libopenh264[^/]*$/.test(library)) encoder += 1;
  }
  return total === 0 ? null : encoder / total;
}

export const hasPerf = () => findCommand('perf') !== null;

const mostOther = 0.1;
const mostPeriods = 3;

/**
 * The figures of one run. Where pictures were left out, a period is that of
 * those which were delivered; memory is that of the whole process.
 */
export function growthFigures(point, { window, sampled, branches }) {
  const seconds = (window.endNs - window.beginNs) / 1e9;
  const delivered = branches.reduce((sum, branch) => sum + branch.delivered, 0);
  const megapixels = branches.reduce((sum, { delivered }, i) => {
    const { width, height } = point.branches[i];
    return sum + (delivered * width * height) / 1e6;
  }, 0) / seconds;
  const cost = (window.processorPerSecond * 1000) / megapixels;
  const share = encoderShare(sampled);
  const [first] = branches;
  const { fps } = point.branches[0];
  const rate = (first.distinct ?? first.delivered) / seconds;
  const periodNs = 1e9 / Math.min(fps, Math.max(rate, 0.1));
  const figures = {
    cost,
    encoderCost: cost * share,
    otherShare: 1 - share,
    otherNsOfPicture: (window.processorPerSecond * (1 - share) * seconds * 1e9) /
      delivered,
    memory: window.peakMemory,
    rate,
    leftOut: branches.reduce((sum, { lost }) => sum + (lost ?? 0), 0),
    gapPeriods: (first.longestGapNs ?? 0) / periodNs,
    latencyNs: first.latencyNs,
    p99Periods: (first.latencyP99Ns ?? 0) / periodNs,
    remarks: [],
  };
  if (figures.otherShare > mostOther) {
    figures.remarks.push(`what is not the encoder is ${
      (figures.otherShare * 100).toFixed(1)} %, at most ${mostOther * 100} %`);
  }
  if (figures.p99Periods > mostPeriods && point.scene.kind !== 'still') {
    figures.remarks.push(`the latency's p99 is ${
      figures.p99Periods.toFixed(1)} periods, at most ${mostPeriods}`);
  }
  return figures;
}
