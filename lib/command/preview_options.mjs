import { parseOptions, size, wholeNumber } from './option_values.mjs';
import { captureOf, captureOptionTypes, mostFps, mostLayers,
  withCaptureValues } from './record_options.mjs';
import { UsageError } from './usage.mjs';

const mostPort = 65_535;
const mostBranches = 2;

const optionTypes = {
  ...captureOptionTypes,
  branch: { type: 'string', multiple: true },
  open: { type: 'boolean' },
  port: { type: 'string' },
};

/** A smaller picture: "640x360" or "640", the rate behind an @. */
function branchOf(text) {
  const [dimensions, rate, ...rest] = text.split('@');
  if (rest.length > 0) {
    throw new UsageError('--branch takes a size and a rate such as 640x360@15');
  }
  return {
    ...(dimensions.includes('x') ? size('branch', dimensions)
      : { width: wholeNumber('branch', dimensions) }),
    fps: rate === undefined ? undefined : wholeNumber('branch', rate, mostFps),
  };
}

/** The smaller pictures that "--branch" asks for. */
export function branchesOf(texts = []) {
  if (texts.length > mostBranches) {
    throw new UsageError(`there can be ${mostBranches} --branch at most`);
  }
  return texts.map(branchOf);
}

function portOf(text) {
  return text === undefined || text === '0' ? 0 : wholeNumber('port', text, mostPort);
}

/** Reads the words behind "preview". */
export function parsePreview(args, environment) {
  const { values } = parseOptions(withCaptureValues(args), optionTypes);
  const { source, audio, video } = captureOf(values, environment);
  return {
    source,
    audio,
    video: {
      ...video,
      branches: branchesOf(values.branch),
      layers: video.layers ?? (values.hardware ? 1 : mostLayers),
    },
    port: portOf(values.port),
    open: values.open ?? false,
    verbose: values.verbose ?? false,
  };
}
