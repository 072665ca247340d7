import {
  bitsPerSecond, bytes, duration, oneOf, onlyOne, parseOptions, size,
  wholeNumber, withOptionalValue,
} from './option_values.mjs';
import { usualAudio } from './recording/media_file.mjs';
import { containerOf, fileEndings } from './recording/output_file.mjs';
import { isPipeName, standardOutput } from './recording/pipe_output.mjs';
import { schemeOf, streamSchemes } from './recording/stream_address.mjs';
import { sourceOf, sourceOptionTypes, withSourceValues } from
  './source_options.mjs';
import visible from '../visible_text.js';
import { UsageError } from './usage.mjs';

const { quoted } = visible;

/** What the session takes at most. */
export const mostFps = 240;
export const mostLayers = 3;

// A file must have room for a few groups of pictures.
const leastPieceBytes = 100_000;
const longestReplaySeconds = 3600;

// What the encoders of sound can do.
const audioBitrates = Object.freeze({
  aac: [32_000, 320_000],
  opus: [6_000, 510_000],
});

// Nobody reads them, but a hardware encoder makes three branches or none.
const unreadBranches = Object.freeze([{ width: 320 }, { width: 160 }]);

const optionTypes = {
  ...sourceOptionTypes,
  app: { type: 'string' },
  bitrate: { type: 'string' },
  fps: { type: 'string' },
  hardware: { type: 'boolean' },
  layers: { type: 'string' },
  microphone: { type: 'string' },
  size: { type: 'string' },
  'system-audio': { type: 'boolean' },
};

// What a recording has besides, and no preview.
const recordTypes = {
  'audio-bitrate': { type: 'string' },
  'audio-codec': { type: 'string' },
  duration: { type: 'string' },
  json: { type: 'boolean' },
  'max-size': { type: 'string' },
  'max-time': { type: 'string' },
  overwrite: { type: 'boolean' },
  replay: { type: 'string' },
};

const isOutput = (text) => containerOf(text) !== undefined ||
  schemeOf(text) !== null || isPipeName(text) || text.startsWith('/dev/fd/');

/** Where a recording goes, by its name alone. */
function outputOf(name) {
  const scheme = schemeOf(name);
  if (scheme !== null) {
    if (!streamSchemes.includes(scheme)) {
      throw new UsageError(`a stream goes to ${
        streamSchemes.map((known) => `${known}://`).join(', ')}, not to ${
        quoted(`${scheme}://`)}`);
    }
    return { kind: 'stream', name };
  }
  if (name === standardOutput || name.startsWith('/dev/fd/')) {
    return { kind: 'pipe', name };
  }
  const container = containerOf(name);
  // A pipe under the name of another kind of file is a mistake.
  if (container !== 'mp4' && isPipeName(name)) return { kind: 'pipe', name };
  if (container === undefined) {
    throw new UsageError(
      `the name of the file must end in ${fileEndings.join(' or ')}`);
  }
  return { kind: 'file', name };
}

function audioFormatOf(values, { kind, name }) {
  const codec = values['audio-codec'] === undefined ? usualAudio.codec
    : oneOf('audio-codec', values['audio-codec'], Object.keys(audioBitrates));
  if (codec === 'opus' && (containerOf(name) === 'mp4' ||
    /^rtmp/.test(schemeOf(name) ?? ''))) {
    throw new UsageError(`Opus goes into .mkv, not ${kind === 'stream'
      ? 'to rtmp://' : 'into .mp4'}`);
  }
  const given = values['audio-bitrate'];
  const bitrate = given === undefined ? usualAudio.bitrate
    : bitsPerSecond('audio-bitrate', given);
  const [least, most] = audioBitrates[codec];
  if (bitrate < least || bitrate > most) {
    throw new UsageError(`--audio-bitrate takes ${least / 1e3}k to ${
      most / 1e3}k with ${codec}`);
  }
  return { codec, bitrate };
}

/** How long and large each file may be; null for one file without an end. */
function limitsOf(values) {
  const seconds = values['max-time'];
  const most = values['max-size'];
  if (seconds === undefined && most === undefined) return null;
  const limits = {
    seconds: seconds === undefined ? Infinity : duration('max-time', seconds),
    bytes: most === undefined ? Infinity : bytes('max-size', most),
  };
  if (limits.seconds < 1) throw new UsageError('--max-time takes at least 1');
  if (limits.bytes < leastPieceBytes) {
    throw new UsageError(
      `--max-size takes at least ${leastPieceBytes / 1e3}k`);
  }
  return limits;
}

function replayOf(values) {
  if (values.replay === undefined) return null;
  const seconds = duration('replay', values.replay);
  if (seconds > longestReplaySeconds) {
    throw new UsageError('--replay takes at most an hour');
  }
  return seconds;
}

/** Several files have names of their own, and are no pipe. */
function checkFiles({ output, limits, replay, overwrite }) {
  const [option] = [['--replay', replay], ['--max-time and --max-size', limits]]
    .find(([, value]) => value !== null) ?? [null];
  if (option === null) return;
  if (output.kind !== 'file') {
    throw new UsageError(`${option} needs the name of a file`);
  }
  if (replay === null) return;
  if (limits !== null) {
    throw new UsageError('--replay excludes --max-time and --max-size');
  }
  if (overwrite) {
    throw new UsageError('--replay writes new files; it takes no --overwrite');
  }
}

function playedOf(values) {
  switch (onlyOne(values, ['system-audio', 'app'])) {
    case 'system-audio':
      return { system: true };
    case 'app':
      return /^\d+$/.test(values.app) ? { processId: Number(values.app) }
        : { application: values.app };
    default:
      return null;
  }
}

function audioOf(values) {
  const played = playedOf(values);
  const { microphone } = values;
  if (microphone === undefined) return played ?? false;
  return { ...played, microphone: microphone === '' ? true : microphone };
}

function videoOf(values) {
  const read = (name, reader) => (values[name] === undefined ? undefined
    : reader(name, values[name]));
  return {
    ...read('size', size),
    fps: read('fps', (name, text) => wholeNumber(name, text, mostFps)),
    bitrate: read('bitrate', bitsPerSecond),
    layers: read('layers', (name, text) => wholeNumber(name, text, mostLayers)),
    encoder: values.hardware ? 'hardware' : 'software',
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

/** The words of a command that captures, as withSourceValues has them. */
export const withCaptureValues = (args,
  isValue = (text) => !text.startsWith('-')) =>
  withOptionalValue(withSourceValues(args, isValue), 'microphone', isValue);

/** Reads the words behind "record". */
export function parseRecord(args, environment) {
  const { values, positionals } = parseOptions(
    withCaptureValues(args,
      (text) => !text.startsWith('-') && !isOutput(text)),
    { ...optionTypes, ...recordTypes }, { allowPositionals: true });
  if (positionals.length !== 1) {
    throw new UsageError(positionals.length === 0
      ? 'the name of the file to write is missing'
      : `record writes one file, not ${positionals.length}: ${
        positionals.map(quoted).join(', ')}`);
  }
  const output = outputOf(positionals[0]);
  const { video, ...capture } = captureOf(values, environment);
  const options = {
    ...capture,
    video: values.hardware ? { ...video, branches: unreadBranches } : video,
    output,
    audioFormat: audioFormatOf(values, output),
    limits: limitsOf(values),
    replay: replayOf(values),
    duration: values.duration === undefined ? Infinity
      : duration('duration', values.duration),
    overwrite: values.overwrite ?? false,
    json: values.json ?? false,
    verbose: values.verbose ?? false,
  };
  checkFiles(options);
  return options;
}
