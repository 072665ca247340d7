// The arithmetic of "--growth".
import { findCommand } from '../../scripts/packages.mjs';

const isEncoderFrame = (line) =>
  /^\s*[0-9a-f]+ .*\((.+\/)?libopenh264[^/]*\)\s*$/.test(line);

/**
 * The part of perf's samples that were taken inside the encoder, or in what it
 * had called. A sample is its stack, a line "ADDRESS (LIBRARY)" a frame, and an
 * empty line.
 */
export function encoderShare(text) {
  const stacks = text.split(/\n\s*\n/).filter((stack) => stack.trim() !== '');
  const encoder = stacks.filter((stack) =>
    stack.split('\n').some(isEncoderFrame)).length;
  return stacks.length === 0 ? null : encoder / stacks.length;
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
