import visible from '../visible_text.js';
import { parseOptions } from './option_values.mjs';
import { forget, requireName } from './remembered.mjs';
import { UsageError } from './usage.mjs';

const { quoted } = visible;

export function parse(args) {
  const { values, positionals } =
    parseOptions(args, {}, { allowPositionals: true });
  if (positionals.length === 0) {
    throw new UsageError('the name of what to forget is missing');
  }
  return { ...values, names: positionals.map(requireName) };
}

export function run({ names }) {
  const unknown = names.filter((name) => !forget(name));
  for (const name of unknown) {
    console.error(`linux-capture: nothing is remembered as ${quoted(name)}`);
  }
  return unknown.length === 0 ? 0 : 1;
}
