'use strict';

/** Every code that a PublishError can carry, and what it says. */
const publishErrorCodes = Object.freeze({
  ABORT_ERR: 'the signal ended the publication before it had started',
  ERR_PUBLISH_ANSWER: 'the server answered what cannot be followed',
  ERR_PUBLISH_ARGUMENT: 'an option is missing or not allowed',
  ERR_PUBLISH_CERTIFICATE: 'the certificate of the server cannot be trusted',
  ERR_PUBLISH_LOST: 'the way to the server was lost',
  ERR_PUBLISH_NOT_FOUND: 'the server has nothing at this address',
  ERR_PUBLISH_PROGRAM: 'a program beside the module is missing or failed',
  ERR_PUBLISH_REFUSED: 'the server refused the publication',
  ERR_PUBLISH_UNAUTHORIZED: 'the server does not take this token, or wants one',
  ERR_PUBLISH_UNREACHABLE: 'the server cannot be reached, or gave no answer',
});

/**
 * What publishing fails with. `code` is one of `publishErrorCodes` and does not
 * change between versions; the message is for people. `mayPass` tells that
 * another attempt, a moment later, may succeed.
 */
class PublishError extends Error {
  constructor(code, message, { cause, mayPass = false } = {}) {
    super(message, cause === undefined ? undefined : { cause });
    this.name = code === 'ABORT_ERR' ? 'AbortError' : 'PublishError';
    this.code = code;
    this.mayPass = mayPass;
  }
}

const argumentError = (message) =>
  new PublishError('ERR_PUBLISH_ARGUMENT', message);

const abortError = (signal) => new PublishError('ABORT_ERR',
  publishErrorCodes.ABORT_ERR, { cause: signal.reason });

/** What the capture, or a program beside the module, failed with. */
function fromCapture(error) {
  if (error instanceof PublishError) return error;
  return new PublishError(error.code === 'ERR_CAPTURE_PROGRAM'
    ? 'ERR_PUBLISH_PROGRAM' : 'ERR_PUBLISH_ARGUMENT',
  error.message, { cause: error });
}

module.exports = {
  PublishError, abortError, argumentError, fromCapture, publishErrorCodes,
};
