'use strict';

const { CaptureError, argumentError, fromNative } = require('./errors.js');
const { loadNative } = require('./native.js');
const { checkSignal, requireObject, requireOneOf } = require('./options.js');
const { describeFailure, runProgram } = require('./programs.js');
const { openSource } = require('./source.js');

const program = 'linux-capture-shot';

const statusOfMissingElement = 7;
const codesOfStatus = new Map([[4, 'ERR_CAPTURE_SOURCE']]);

// The first descriptor behind the three that every program has.
const inheritedFd = 3;

/** The source of a request as arguments, and the descriptor that it needs. */
function argumentsOf({ source, portal }) {
  if (source.backend === 'portal') {
    return {
      args: ['--pipewire', String(portal.pipeWireNodeId),
        '--fd', String(inheritedFd)],
      descriptors: [portal.pipeWireFd],
    };
  }
  if (source.kind === 'window') {
    return { args: ['--window', String(source.handle)], descriptors: [] };
  }
  const { x, y, width, height } = source.geometry;
  return { args: ['--rectangle', `${x},${y},${width}x${height}`],
    descriptors: [] };
}

/** The source with what it is to do about the pointer. */
function withPointer(source, pointer) {
  if (pointer === undefined) return { source, more: [] };
  requireOneOf(pointer, 'pointer', ['embedded', 'hidden']);
  switch (source?.type) {
    case 'portal':
      return { source: { ...source, cursor: pointer }, more: [] };
    case 'pipewire':
      throw argumentError('pointer is not for a source of type "pipewire": ' +
        'who granted the stream has chosen');
    default:
      return { source, more: pointer === 'hidden' ? ['--hide-pointer'] : [] };
  }
}

function failureOf(result) {
  const message = describeFailure(program, result);
  if (result.code === statusOfMissingElement) {
    return fromNative(
      Object.assign(new Error(message), { code: 'missing-element' }));
  }
  return new CaptureError(
    codesOfStatus.get(result.code) ?? 'ERR_CAPTURE_PROGRAM', message);
}

/** One picture of an opened source as the bytes of a PNG. */
async function readPicture(opened, more, signal) {
  const { args, descriptors } = argumentsOf(opened.request);
  const result = await runProgram(program, [...args, ...more],
    { descriptors, isBinary: true, signal });
  if (result.code !== 0) throw failureOf(result);
  return result.stdout;
}

// Every PNG begins with its size, behind a signature and the name of a part.
const sizeOf = (png) =>
  ({ width: png.readUInt32BE(16), height: png.readUInt32BE(20) });

/**
 * Takes one picture of a source. Nothing of the native module's one capture is
 * used for it, so that one may run meanwhile.
 */
async function takeScreenshot(options) {
  requireObject(options, 'options', ['source', 'pointer', 'signal']);
  const { signal } = options;
  checkSignal(signal);
  const { source, more } = withPointer(options.source, options.pointer);
  const opened = await openSource(source, {
    // Only to copy the descriptor of a portal's program.
    get native() { return loadNative(); }, signal,
  });
  try {
    const data = await readPicture(opened, more, signal);
    return {
      data,
      ...sizeOf(data),
      source: opened.description,
      restoreToken: opened.restoreToken,
    };
  } finally {
    await opened.release();
  }
}

module.exports = { takeScreenshot };
