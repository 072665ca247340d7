import process from 'node:process';

import session from '../session/index.js';
import { parseOptions } from './option_values.mjs';

export const parse = (args) =>
  parseOptions(args, { json: { type: 'boolean' } }).values;

const sizeText = ({ x, y, width, height }) => `${width}x${height}+${x}+${y}`;

const sections = [
  ['Monitors (--monitor NAME)', 'monitors', 'x11', (entry) => [
    entry.name, sizeText(entry.source.geometry),
    entry.isPrimary ? 'primary' : '',
  ]],
  ['Windows (--window ID|TITLE)', 'windows', 'x11', (entry) => [
    `0x${entry.source.handle.toString(16)}`, sizeText(entry.geometry),
    entry.title ?? '(no title)',
  ]],
  ['Applications with sound (--app NAME|PID)', 'applications', 'pipewire',
    (entry) => [
      String(entry.processId ?? '?'), entry.processBinary ?? '?',
      entry.applicationName ?? '',
    ]],
  ['Outputs of sound (--system-audio)', 'system', 'pipewire', (entry) => [
    entry.name, entry.description ?? '', entry.isDefault ? 'default' : '',
  ]],
];

/** Rows of texts as columns of equal width. */
export function columns(rows) {
  const widths = (rows[0] ?? []).map((_, column) =>
    Math.max(...rows.map((row) => row[column].length)));
  return rows.map((row) => row
    .map((text, column) => text.padEnd(widths[column])).join('  ').trimEnd());
}

function sourcesText(targets) {
  return sections.map(([title, key, part, row]) => {
    const list = targets[key];
    const lines = list === null
      ? [targets.problems.find((entry) => entry.part === part)?.message ??
        'cannot be listed']
      : list.length === 0 ? ['none'] : columns(list.map(row));
    return [title, ...lines.map((line) => `  ${line}`)].join('\n');
  }).join('\n\n');
}

export async function run({ json }) {
  const targets = await session.listTargets();
  process.stdout.write(
    `${json ? JSON.stringify(targets, null, 2) : sourcesText(targets)}\n`);
  return targets.monitors === null && targets.applications === null ? 1 : 0;
}
