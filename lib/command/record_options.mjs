import path from 'node:path';

import { fileEndings } from './recording/media_file.mjs';
import {
  bitsPerSecond, duration, onlyOne, parseOptions, size, wholeNumber,
} from './option_values.mjs';
import { sourceOf, sourceOptionTypes, withSourceValues } from
  './source_options.mjs';
import visible from '../visible_text.js';
import { UsageError } from './usage.mjs';

const { quoted } = visible;

/** What the session takes at most. */
export const mostFps = 240;

const optionTypes = {
  ...sourceOptionTypes,
  app: { type: 'string' },
  bitrate: { type: 'string' },
  duration: { type: 'string' },
  fps: { type: 'string' },
  overwrite: { type: 'boolean' },
  size: { type: 'string' },
  'system-audio': { type: 'boolean' },
};

const isOutput = (text) =>
  fileEndings.includes(path.extname(text).toLowerCase());

function audioOf(values) {
  switch (onlyOne(values, ['system-audio', 'app'])) {
    case 'system-audio':
      return 'system';
    case 'app':
      return /^\d+$/.test(values.app) ? { processId: Number(values.app) }
        : { application: values.app };
    default:
      return false;
  }
}

function videoOf(values) {
  const read = (name, reader) => (values[name] === undefined ? undefined
    : reader(name, values[name]));
  return {
    ...read('size', size),
    fps: read('fps', (name, text) => wholeNumber(name, text, mostFps)),
    bitrate: read('bitrate', bitsPerSecond),
  };
}

/** Options that say what to capture and how, for other commands too. */
export const captureOptionTypes = optionTypes;

export function captureOf(values, environment) {
  return {
    source: sourceOf(values, environment),
    audio: audioOf(values),
    video: videoOf(values),
  };
}

/** Reads the words behind "record". */
export function parseRecord(args, environment) {
  const { values, positionals } = parseOptions(
    withSourceValues(args,
      (text) => !text.startsWith('-') && !isOutput(text)),
    optionTypes, { allowPositionals: true });
  if (positionals.length !== 1) {
    throw new UsageError(positionals.length === 0
      ? 'the name of the file to write is missing'
      : `record writes one file, not ${positionals.length}: ${
        positionals.map(quoted).join(', ')}`);
  }
  if (!isOutput(positionals[0])) {
    throw new UsageError(
      `the name of the file must end in ${fileEndings.join(' or ')}`);
  }
  return {
    ...captureOf(values, environment),
    file: positionals[0],
    duration: values.duration === undefined ? Infinity
      : duration('duration', values.duration),
    overwrite: values.overwrite ?? false,
    verbose: values.verbose ?? false,
  };
}
