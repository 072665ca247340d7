'use strict';

const fs = require('node:fs');

const { CaptureError, abortError, argumentError, fromNative } =
  require('./errors.js');
const { requireObject, requireOneOf, requireText } = require('./options.js');
const { describeFailure, endProgram, startProgram } = require('./programs.js');

const program = 'linux-capture-portal';
const sourceTypes = ['monitor', 'window'];

const codesOfStatus = new Map([
  [3, 'ERR_CAPTURE_PORTAL_CANCELLED'],
  [4, 'ERR_CAPTURE_PORTAL_DENIED'],
  [5, 'ERR_CAPTURE_PORTAL_MISSING'],
  [6, 'ERR_CAPTURE_PORTAL_CLOSED'],
]);

function commandOf(source) {
  requireObject(source, 'source',
    ['type', 'types', 'cursor', 'restoreToken', 'persist', 'onRestoreToken']);
  const args = [];
  if (source.types !== undefined) {
    if (!Array.isArray(source.types) || source.types.length === 0) {
      throw argumentError('source.types must be a list that is not empty');
    }
    source.types.forEach((type) =>
      requireOneOf(type, 'an entry of source.types', sourceTypes));
    args.push('--types', source.types.join(','));
  }
  if (source.cursor !== undefined) {
    args.push('--cursor', requireOneOf(source.cursor, 'source.cursor',
      ['hidden', 'embedded', 'metadata']));
  }
  if (source.persist !== undefined) {
    args.push('--persist', requireOneOf(source.persist, 'source.persist',
      ['none', 'session', 'permanent']));
  }
  if (source.restoreToken === undefined || source.restoreToken === null) {
    return { args, input: '' };
  }
  const token = requireText(source.restoreToken, 'source.restoreToken');
  if (/[\n\0]/.test(token)) {
    throw argumentError('source.restoreToken must be one line');
  }
  // Not an argument: those can be read by every user of the machine.
  args.push('--restore-token-stdin');
  return { args, input: `${token}\n` };
}

/** The first line that the program prints, or how it ended without one. */
function firstLine(run) {
  return new Promise((resolve) => {
    const look = () => {
      const end = run.stdout.indexOf('\n');
      if (end !== -1) resolve({ line: run.stdout.slice(0, end) });
    };
    run.child.stdout.on('data', look);
    run.ended.then((result) => resolve({ result }));
  });
}

function portalRequest(answer, fd) {
  const request = { pipeWireFd: fd };
  for (const key of ['pipeWireNodeId', 'pipeWireSerial', 'streamSize',
    'sourceType', 'label', 'streamId', 'mappingId', 'restoreTokenUsed',
    'restoreTokenUpdated']) {
    if (answer[key] !== null && answer[key] !== undefined) {
      request[key] = answer[key];
    }
  }
  return request;
}

/**
 * Has the desktop ask its user for a stream. The result holds the parts of the
 * capture request, `opened()` to be called when the capture has taken the
 * descriptor over, `reopen()`, which returns the request of another capture of
 * the same stream, `closed`, which resolves when the desktop ends the session,
 * and `release()`.
 */
async function openPortal(source, { native, signal }) {
  const { args, input } = commandOf(source);
  const { onRestoreToken } = source;
  if (onRestoreToken !== undefined && typeof onRestoreToken !== 'function') {
    throw argumentError('source.onRestoreToken must be a function');
  }
  const run = startProgram(program, args, { input });
  const abort = () => run.child.stdin.end();
  signal?.addEventListener('abort', abort, { once: true });
  try {
    const { line, result } = await firstLine(run);
    if (signal?.aborted) throw abortError(signal);
    if (line === undefined) {
      throw new CaptureError(
        codesOfStatus.get(result.code) ?? 'ERR_CAPTURE_PROGRAM',
        describeFailure(program, result));
    }
    const answer = JSON.parse(line);
    // At once: the token before it is used up, whatever becomes of the start.
    onRestoreToken?.(answer.restoreToken ?? null);
    let fd = null;
    const opened = () => {
      if (fd !== null) fs.closeSync(fd);
      fd = null;
    };
    const grant = () => {
      opened();
      fd = native.duplicateFdFromPid(answer.pid, answer.pipeWireFd);
      return {
        source: { backend: 'portal', kind: answer.kind },
        portal: portalRequest(answer, fd),
      };
    };
    return {
      request: grant(),
      reopen: grant,
      size: answer.streamSize,
      description: { type: 'portal', kind: answer.kind, label: answer.label },
      restoreToken: answer.restoreToken ?? null,
      opened,
      closed: run.ended.then((end) => describeFailure(program, end)),
      release: async () => {
        opened();
        await endProgram(run);
      },
    };
  } catch (error) {
    await endProgram(run);
    throw fromNative(error, 'ERR_CAPTURE_PROGRAM');
  } finally {
    signal?.removeEventListener('abort', abort);
  }
}

module.exports = { openPortal };
