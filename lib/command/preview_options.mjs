import { parseOptions, size, wholeNumber } from './option_values.mjs';
import { captureOf, captureOptionTypes, mostFps } from './record_options.mjs';
import { withSourceValues } from './source_options.mjs';
import { UsageError } from './usage.mjs';

const mostPort = 65_535;
const mostBranches = 2;
const mostLayers = 3;

// What a recording has and a preview has not.
const fileOptions = ['duration', 'overwrite'];

const optionTypes = {
  ...Object.fromEntries(Object.entries(captureOptionTypes)
    .filter(([name]) => !fileOptions.includes(name))),
  branch: { type: 'string', multiple: true },
  hardware: { type: 'boolean' },
  layers: { type: 'string' },
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

function portOf(text) {
  return text === undefined || text === '0' ? 0 : wholeNumber('port', text, mostPort);
}

function layersOf({ layers, hardware }) {
  if (layers !== undefined) return wholeNumber('layers', layers, mostLayers);
  return hardware ? 1 : mostLayers;
}

/** Reads the words behind "preview". */
export function parsePreview(args, environment) {
  const { values } = parseOptions(withSourceValues(args), optionTypes);
  const branches = (values.branch ?? []).map(branchOf);
  if (branches.length > mostBranches) {
    throw new UsageError(`there can be ${mostBranches} --branch at most`);
  }
  const { source, audio, video } = captureOf(values, environment);
  return {
    source,
    audio,
    video: {
      ...video,
      branches,
      layers: layersOf(values),
      encoder: values.hardware ? 'hardware' : 'software',
    },
    port: portOf(values.port),
    open: values.open ?? false,
    verbose: values.verbose ?? false,
  };
}
