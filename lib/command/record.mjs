import { existsSync, statSync } from 'node:fs';
import process from 'node:process';

import session from '../session/index.js';
import { MediaFile } from './media_file.mjs';
import { parseRecord } from './record_options.mjs';
import { Recorder } from './recorder.mjs';
import { StatusLine, clockText } from './status_line.mjs';

// A killed recording ends with its last whole piece, and pieces begin with
// keyframes.
const keyframeSeconds = 1;

export const parse = (args) => parseRecord(args, process.env);

const sizeText = (bytes) => (bytes < 1e6 ? `${Math.ceil(bytes / 1e3)} kB`
  : `${(bytes / 1e6).toFixed(1)} MB`);

function describeSource(source) {
  switch (source.type) {
    case 'monitor':
      return source.name === null ? 'a rectangle' : `monitor ${source.name}`;
    case 'window':
      return `window ${JSON.stringify(source.title)}`;
    default:
      return `the ${source.kind} chosen in the dialog`;
  }
}

function describe(capture) {
  const [{ width, height, fps }] = capture.branches;
  return `${describeSource(capture.source)}, ${width}x${height} at ${fps} fps` +
    (capture.hasAudio ? ', with sound' : '');
}

function reportEnd({ reason, error, detail }) {
  if (error !== null) {
    console.error(`linux-capture: ${error.message}`);
  } else if (reason === 'source-ended') {
    console.log(`The source ended: ${detail}`);
  }
}

async function fill(capture, file, options) {
  const recorder = new Recorder(capture, file, options);
  const line = new StatusLine(() => recorder.status());
  capture.events.on('error', (error) => {
    if (!error.isFatal) console.error(`linux-capture: ${error.message}`);
  });
  try {
    await recorder.run();
  } catch (error) {
    if (error.code !== 'ERR_CAPTURE_VIDEO') throw error;
    // "ended" tells it too, when the file is complete.
  } finally {
    line.stop();
    await file.close();
  }
  return recorder;
}

/** Records until it is stopped; resolves with the exit status. */
export async function run(options, { stop }) {
  if (existsSync(options.file) && !options.overwrite) {
    throw new Error(
      `${options.file} exists already; --overwrite replaces it`);
  }
  if (options.source.type === 'portal') {
    console.log('Choose what to record in the dialog of the desktop.');
  }
  const capture = await session.startCapture({
    source: options.source,
    audio: options.audio,
    video: { ...options.video, keyframeEvery: keyframeSeconds },
    signal: stop,
  });
  try {
    const file = new MediaFile(options.file, { hasAudio: capture.hasAudio });
    await file.start();
    console.log(`Recording ${describe(capture)} into ${options.file}`);
    const recorder = await fill(capture, file, options);
    const end = await capture.ended;
    reportEnd(end);
    console.log(`${options.file}: ${clockText(file.seconds)}, ` +
      `${recorder.pictures} pictures, ` +
      sizeText(statSync(options.file).size));
    return end.error === null && recorder.pictures > 0 ? 0 : 1;
  } finally {
    await capture.stop();
  }
}
