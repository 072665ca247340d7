'use strict';

const { installSentence, packagesOfElement } =
  require('../system_packages.js');

/** Every code that a CaptureError can carry, and what it says. */
const captureErrorCodes = Object.freeze({
  ABORT_ERR: 'the signal ended the start of the capture',
  ERR_CAPTURE_ACTIVE: 'another capture is running in this process',
  ERR_CAPTURE_ARGUMENT: 'an option is missing or not allowed',
  ERR_CAPTURE_AUDIO: 'the sound of a running capture met an error',
  ERR_CAPTURE_CANCELLED: 'the user gave up drawing a region',
  ERR_CAPTURE_HARDWARE: 'there is no hardware encoder that fits',
  ERR_CAPTURE_INTERRUPTED: 'the source cannot be read; the capture goes on',
  ERR_CAPTURE_LOAD: 'the native module could not be loaded',
  ERR_CAPTURE_MISSING_ELEMENT: 'a GStreamer element is not installed',
  ERR_CAPTURE_NO_DISPLAY: 'there is no X11 display to look for sources on',
  ERR_CAPTURE_NO_PIPEWIRE: 'there is no PipeWire session to look for sound in',
  ERR_CAPTURE_NOT_FOUND: 
    'no monitor, window, application, output or input is like that',
  ERR_CAPTURE_PORTAL_CANCELLED: 'the user closed the dialog of the portal',
  ERR_CAPTURE_PORTAL_CLOSED: 'the desktop ended the session of the portal',
  ERR_CAPTURE_PORTAL_DENIED: 'the portal refused or failed',
  ERR_CAPTURE_PORTAL_MISSING: 'there is no portal for screen casts here',
  ERR_CAPTURE_PROGRAM: 'a program beside the module is missing or failed',
  ERR_CAPTURE_READER: 'the branch, or the sound, has a reader already',
  ERR_CAPTURE_REQUEST: 'the native module refused the request',
  ERR_CAPTURE_SOURCE: 'the source could not be opened',
  ERR_CAPTURE_STOPPED: 'the capture has ended',
  ERR_CAPTURE_UNSUPPORTED: 'this capture cannot do that',
  ERR_CAPTURE_VIDEO: 'the picture of a running capture met an error',
});

/**
 * What every function of a session fails with. `code` is one of
 * `captureErrorCodes` and does not change between versions; the message is for
 * people and holds what the native module or a program said. `isFatal` tells,
 * for an error event, whether the capture has ended by it; `nativeCode` is the
 * native module's own code, if the error came from there.
 */
class CaptureError extends Error {
  constructor(code, message,
    { cause, isFatal = true, nativeCode = null } = {}) {
    super(message, cause === undefined ? undefined : { cause });
    // The name by which all of JavaScript tells an abort from a failure.
    this.name = code === 'ABORT_ERR' ? 'AbortError' : 'CaptureError';
    this.code = code;
    this.isFatal = isFatal;
    this.nativeCode = nativeCode;
  }
}

const argumentError = (message) =>
  new CaptureError('ERR_CAPTURE_ARGUMENT', message);

// A desktop may have hundreds of windows.
const longestList = 12;

/** Tells what there is instead; `list` holds texts that may be shown. */
function notFound(what, list) {
  const more = list.length - longestList;
  const shown = list.slice(0, longestList).join(', ') +
    (more > 0 ? ` and ${more} more` : '');
  const there = ['there is none at all', `there is only ${shown}`][list.length];
  return new CaptureError('ERR_CAPTURE_NOT_FOUND',
    `there is no ${what}; ${there ?? `there are ${shown}`}`);
}

const abortError = (signal) => new CaptureError(
  'ABORT_ERR', 'the capture was aborted before it had started',
  { cause: signal.reason });

// What the codes of the native module are here; the others are refusals of the
// request.
const codesOfNative = Object.freeze({
  'connection-invalid': 'ERR_CAPTURE_SOURCE',
  'display-stalled': 'ERR_CAPTURE_SOURCE',
  'hardware-unavailable': 'ERR_CAPTURE_HARDWARE',
  'missing-element': 'ERR_CAPTURE_MISSING_ELEMENT',
  'process-unreachable': 'ERR_CAPTURE_PORTAL_DENIED',
  'session-manager-missing': 'ERR_CAPTURE_SOURCE',
  'session-manager-stalled': 'ERR_CAPTURE_SOURCE',
  'sound-server-stalled': 'ERR_CAPTURE_SOURCE',
  'source-paused': 'ERR_CAPTURE_SOURCE',
  'source-stalled': 'ERR_CAPTURE_SOURCE',
  'start-interrupted': 'ERR_CAPTURE_ACTIVE',
  'state-change-failed': 'ERR_CAPTURE_SOURCE',
  'target-missing': 'ERR_CAPTURE_SOURCE',
});

// A name in the quotation marks of any language.
const quotedName =
  /["'\p{Pi}\p{Pf}\p{Ps}]\s*([\w-]+)\s*["'\p{Pi}\p{Pf}\p{Pe}]/u;

/** GStreamer's words about a missing element, with the package to install. */
function withRemedy(message) {
  const element = quotedName.exec(message)?.[1];
  const wanted = element === undefined ? null : packagesOfElement(element);
  return wanted === null ? message
    : `${message}: ${installSentence([wanted])}`;
}

/** A thrown error of the native module as a CaptureError. */
function fromNative(error, fallback = 'ERR_CAPTURE_REQUEST') {
  if (error instanceof CaptureError) return error;
  const message = error instanceof Error ? error.message : String(error);
  return new CaptureError(codesOfNative[error?.code] ?? fallback,
    error?.code === 'missing-element' ? withRemedy(message) : message,
    { cause: error, nativeCode: error?.code ?? null });
}

module.exports = {
  CaptureError, abortError, argumentError, captureErrorCodes, fromNative,
  notFound,
};
