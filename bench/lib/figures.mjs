// The arithmetic of the benchmark, apart from everything that measures. Times
// are nanoseconds. A picture is { number, arrivalNs }, its number null when it
// could not be read; pictures stand in the order of their stream.

/** The value below which the given part of the values lies, interpolated. */
export function quantile(values, part) {
  if (values.length === 0) return null;
  const sorted = [...values].sort((a, b) => a - b);
  const place = (sorted.length - 1) * part;
  const below = Math.floor(place);
  const above = Math.min(below + 1, sorted.length - 1);
  return sorted[below] + (sorted[above] - sorted[below]) * (place - below);
}

export const median = (values) => quantile(values, 0.5);

/** Median, least and greatest of the runs that have a value. */
export function spreadOf(values) {
  const known = values.filter((value) => Number.isFinite(value));
  return known.length === 0
    ? null
    : { median: median(known), least: Math.min(...known),
      greatest: Math.max(...known), count: known.length };
}

/** The ratios of runs that were made side by side. */
export function pairedRatios(values, others) {
  const count = Math.min(values.length, others.length);
  return Array.from({ length: count }, (_, run) => values[run] / others[run])
    .filter((ratio) => Number.isFinite(ratio));
}

const isWithin = (time, { beginNs, endNs }) => time >= beginNs && time < endNs;

/**
 * From the drawing of a picture to the arrival of the first packet that shows
 * it, for all whose packet arrived in the window.
 */
export function latenciesNs(pictures, drawnNs, window) {
  const seen = new Set();
  const latencies = [];
  for (const { number, arrivalNs } of pictures) {
    if (number === null || seen.has(number)) continue;
    seen.add(number);
    const drawn = drawnNs.get(number);
    if (drawn !== undefined && isWithin(arrivalNs, window)) {
      latencies.push(arrivalNs - drawn);
    }
  }
  return latencies;
}

/** Beyond it, a regular capture is not regular any more. */
const jitterNs = 3e6;

/**
 * What a branch delivered of a moving scene in the window, judged by the
 * pictures themselves: when they were drawn, not when they arrived.
 *
 * A picture is up to one scene period old when it is captured, so the drawing
 * times of two pictures may lie closer or further apart than their captures.
 * `lost` takes the least number of captures that explains the span: it never
 * counts a picture that was not lost, and misses at most one at the edges.
 */
export function continuityOf(pictures, drawnNs, window, periods) {
  const inside =
    pictures.filter(({ arrivalNs }) => isWithin(arrivalNs, window));
  const drawn = [];
  const seen = new Set();
  for (const { number } of inside) {
    if (number === null || seen.has(number) || !drawnNs.has(number)) continue;
    seen.add(number);
    drawn.push(drawnNs.get(number));
  }
  const gaps = drawn.slice(1).map((time, i) => time - drawn[i]);
  const unreadable = inside.filter(({ number }) => number === null).length;
  const result = {
    delivered: inside.length,
    distinct: drawn.length,
    repeated: inside.length - unreadable - drawn.length,
    unreadable,
    longestGapNs: gaps.length > 0 ? Math.max(...gaps) : null,
    lost: null,
  };
  if (drawn.length > 1) {
    const span = drawn.at(-1) - drawn[0];
    const steps = Math.ceil(
      (span - periods.sceneNs - jitterNs) / periods.branchNs);
    result.lost = Math.max(0, steps + 1 - drawn.length);
  }
  return result;
}

/**
 * The same of a still scene, whose pictures are alike: judged by the packets
 * that should have arrived between the first and the last one.
 */
export function steadinessOf(pictures, window, branchNs) {
  const times = pictures.map(({ arrivalNs }) => arrivalNs)
    .filter((time) => isWithin(time, window));
  const gaps = times.slice(1).map((time, i) => time - times[i]);
  const span = times.length > 1 ? times.at(-1) - times[0] : 0;
  return {
    delivered: times.length,
    distinct: null,
    repeated: null,
    unreadable: pictures.filter(({ number, arrivalNs }) =>
      number === null && isWithin(arrivalNs, window)).length,
    longestGapNs: gaps.length > 0 ? Math.max(...gaps) : null,
    lost: times.length > 1
      ? Math.max(0, Math.round(span / branchNs) + 1 - times.length)
      : null,
  };
}
