import path from 'node:path';

import visible from '../visible_text.js';
import { parseOptions } from './option_values.mjs';
import { pointerOf, sourceOf, sourceOptionTypes, withSourceValues } from
  './source_options.mjs';
import { UsageError } from './usage.mjs';

const { quoted } = visible;

const isOutput = (text) =>
  text === '-' || path.extname(text).toLowerCase() === '.png';

/** Reads the words behind "shot". */
export function parseShot(args, environment) {
  const { values, positionals } = parseOptions(
    withSourceValues(args,
      (text) => !text.startsWith('-') && !isOutput(text)),
    { ...sourceOptionTypes, overwrite: { type: 'boolean' } },
    { allowPositionals: true });
  if (positionals.length !== 1) {
    throw new UsageError(positionals.length === 0
      ? 'the name of the file to write is missing'
      : `shot writes one file, not ${positionals.length}: ${
        positionals.map(quoted).join(', ')}`);
  }
  const [file] = positionals;
  if (!isOutput(file)) {
    throw new UsageError('the name of the file must end in .png, or be - ' +
      'for standard output');
  }
  return {
    // A single picture of X11 may do without the pointer as well.
    source: sourceOf({ ...values, pointer: undefined }, environment),
    pointer: pointerOf(values),
    file,
    overwrite: values.overwrite ?? false,
    verbose: values.verbose ?? false,
  };
}
