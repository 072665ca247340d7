import { spreadOf } from './figures.mjs';

/**
 * Rows of texts, the first one the heading, as an aligned table. The first
 * `leftColumns` columns are texts, the others numbers.
 */
export function formatTable(rows, { markdown = false, leftColumns = 1 } = {}) {
  const widths = rows[0].map((_, i) =>
    Math.max(...rows.map((row) => row[i].length)));
  const cells = (row) => row.map((cell, i) =>
    (i < leftColumns ? cell.padEnd(widths[i]) : cell.padStart(widths[i])));
  if (!markdown) {
    return rows.map((row) => cells(row).join('  ').trimEnd()).join('\n');
  }
  const line = (row) => `| ${row.join(' | ')} |`;
  const rule = line(widths.map((width, i) => (i < leftColumns
    ? '-'.repeat(Math.max(width, 3))
    : `${'-'.repeat(Math.max(width - 1, 2))}:`)));
  const [heading, ...rest] = rows.map((row) => line(cells(row)));
  return [heading, rule, ...rest].join('\n');
}

/** "0.61 (0.60..0.65)": the median of the runs and their extremes. */
export function spreadText(values, digits = 2, scale = 1) {
  const spread = spreadOf(values.map((value) =>
    (value === null || value === undefined ? NaN : value * scale)));
  if (spread === null) return '-';
  const [middle, least, greatest] =
    [spread.median, spread.least, spread.greatest]
      .map((value) => value.toFixed(digits));
  return least === greatest ? middle : `${middle} (${least}..${greatest})`;
}
