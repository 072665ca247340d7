import publishing from '../publish/index.js';
import { captureOf, captureOptionTypes, mostLayers, withCaptureValues } from
  './record_options.mjs';
import { bitsPerSecond, onlyOne, parseOptions } from './option_values.mjs';
import { branchesOf } from './preview_options.mjs';
import { UsageError } from './usage.mjs';

const optionTypes = {
  ...captureOptionTypes,
  'ask-token': { type: 'boolean' },
  'audio-bitrate': { type: 'string' },
  branch: { type: 'string', multiple: true },
  'token-file': { type: 'string' },
};

const isUrl = (text) => /^[a-z][a-z0-9+.-]*:/i.test(text);

/** Where the token is found; never on the command line, which all can see. */
function tokenOf(values, environment) {
  switch (onlyOne(values, ['token-file', 'ask-token'])) {
    case 'token-file':
      return { from: 'file', file: values['token-file'] };
    case 'ask-token':
      return { from: 'prompt' };
    default:
      return environment.LINUX_CAPTURE_TOKEN === undefined
        ? { from: 'nowhere' } : { from: 'environment' };
  }
}

/** Reads the words behind "publish". */
export function parsePublish(args, environment) {
  const { values, positionals } = parseOptions(
    withCaptureValues(args, (text) => !text.startsWith('-') && !isUrl(text)),
    optionTypes, { allowPositionals: true });
  if (positionals.length !== 1) {
    throw new UsageError(positionals.length === 0
      ? 'the address to publish to is missing'
      : 'publish takes one address');
  }
  try {
    publishing.checkAddress(positionals[0]);
  } catch (error) {
    throw new UsageError(error.message, { cause: error });
  }
  const { source, audio, video } = captureOf(values, environment);
  return {
    url: positionals[0],
    token: tokenOf(values, environment),
    source,
    audio,
    video: {
      ...video,
      branches: branchesOf(values.branch),
      layers: video.layers ?? (values.hardware ? 1 : mostLayers),
    },
    audioBitrate: values['audio-bitrate'] === undefined ? undefined
      : bitsPerSecond('audio-bitrate', values['audio-bitrate']),
    verbose: values.verbose ?? false,
  };
}
