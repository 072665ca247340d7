'use strict';

const { PublishError, argumentError } = require('./errors.js');
const { isSafe } = require('./whip_client.js');

const known = ['url', 'token', 'simulcast', 'audio', 'audioBitrate',
  'reconnect', 'signal'];
const defaultAudioBitrate = 128_000;

/** The address of an endpoint, as a URL, when it may be published to. */
function readUrl(url) {
  if (!(typeof url === 'string' || url instanceof URL) || !URL.canParse(url)) {
    throw argumentError('the address of a WHIP endpoint is missing, or is none');
  }
  const parsed = new URL(url);
  if (parsed.username !== '' || parsed.password !== '') {
    throw argumentError('the address must not hold a name or a password: ' +
      'use a token');
  }
  if (!isSafe(parsed)) {
    throw argumentError('the address must begin with https:// (http:// is ' +
      'for this machine itself)');
  }
  return parsed;
}

function readToken(token) {
  if (token === undefined || token === null) return null;
  if (typeof token !== 'string' || !/^[\x21-\x7e]+$/.test(token)) {
    throw argumentError('"token" must be a text without spaces');
  }
  return token;
}

function readFlag(options, name, fallback) {
  const value = options[name] ?? fallback;
  if (typeof value !== 'boolean') {
    throw argumentError(`"${name}" must be true or false`);
  }
  return value;
}

/** The options of a publication, checked against the capture. */
function readPublishOptions(capture, options) {
  if (options === null || typeof options !== 'object') {
    throw argumentError('the options must be an object');
  }
  const unknown = Object.keys(options).find((key) => !known.includes(key));
  if (unknown !== undefined) {
    throw argumentError(`there is no option "${unknown}"`);
  }
  if (!capture?.isActive) {
    throw new PublishError('ERR_PUBLISH_ARGUMENT', 'the capture has ended');
  }
  const audio = readFlag(options, 'audio', capture.hasAudio);
  if (audio && !capture.hasAudio) {
    throw argumentError('the capture was started without sound');
  }
  const audioBitrate = options.audioBitrate ?? defaultAudioBitrate;
  if (!Number.isInteger(audioBitrate) || audioBitrate < 6_000 ||
      audioBitrate > 510_000) {
    throw argumentError('"audioBitrate" must be 6000 to 510000');
  }
  const { signal } = options;
  if (signal !== undefined && !(signal instanceof AbortSignal)) {
    throw argumentError('"signal" must be an AbortSignal');
  }
  return {
    url: readUrl(options.url),
    token: readToken(options.token),
    isSimulcast: readFlag(options, 'simulcast', true) &&
      capture.branches.length > 1,
    audio,
    audioBitrate,
    reconnect: readFlag(options, 'reconnect', true),
    signal,
  };
}

module.exports = { readPublishOptions, readUrl };
