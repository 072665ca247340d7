import process from 'node:process';

import session from '../session/index.js';
import visible from '../visible_text.js';
import { parseOptions } from './option_values.mjs';
import { rememberedChoices } from './remembered.mjs';

const { visibleText } = visible;

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
  ['Inputs of sound (--microphone NAME)', 'inputs', 'pipewire', (entry) => [
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

const rememberedTitle = 'Remembered choices (--remember NAME)';

const visibleRow = (row) => row.map(visibleText);

/** JSON has the same way to write out what cannot be seen. */
const jsonText = (value) =>
  JSON.stringify(value, null, 2).split('\n').map(visibleText).join('\n');

const indented = (title, lines) =>
  [title, ...lines.map((line) => `  ${line}`)].join('\n');

const rowsOf = (rows) =>
  (rows.length === 0 ? ['none'] : columns(rows.map(visibleRow)));

function sourcesText({ remembered, ...targets }) {
  const listed = sections.map(([title, key, part, row]) => {
    const list = targets[key];
    const lines = list === null
      ? [targets.problems.find((entry) => entry.part === part)?.message ??
        'cannot be listed']
      : rowsOf(list.map(row));
    return indented(title, lines);
  });
  return [...listed, indented(rememberedTitle, rowsOf(
    remembered.map(({ name, savedAt }) => [name, savedAt])))].join('\n\n');
}

export async function run({ json }) {
  const targets = {
    ...await session.listTargets(), remembered: rememberedChoices(),
  };
  process.stdout.write(
    `${json ? jsonText(targets) : sourcesText(targets)}\n`);
  return targets.monitors === null && targets.applications === null ? 1 : 0;
}
