import process from 'node:process';

import session from '../session/index.js';
import visible from '../visible_text.js';
import { chooseSource } from './chosen_source.mjs';
import { scalingText, tellTroubles } from './notices.mjs';
import { MediaFile } from './recording/media_file.mjs';
import { OutputFile, removeLeftover } from './recording/output_file.mjs';
import { parseRecord } from './record_options.mjs';
import { Recorder } from './recording/recorder.mjs';
import { StatusLine, clockText } from './status_line.mjs';

const { quoted } = visible;

// A killed recording ends with its last whole piece, and pieces begin with
// keyframes.
const keyframeSeconds = 1;

export const parse = (args) => parseRecord(args, process.env);
export const endsItself = true;

/** A recording that was ended by force leaves no file with nothing in it. */
export const lookAfter = ({ file }, identity) => removeLeftover(file, identity);

const sizeText = (bytes) => (bytes < 1e6 ? `${Math.ceil(bytes / 1e3)} kB`
  : `${(bytes / 1e6).toFixed(1)} MB`);

function describeSource(source) {
  switch (source.type) {
    case 'monitor':
      return source.name === null ? 'a rectangle' : `monitor ${source.name}`;
    case 'window':
      return source.title === null ? 'a window without a title'
        : `window ${quoted(source.title)}`;
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

async function fill(recorder) {
  const line = new StatusLine(() => recorder.status());
  try {
    await recorder.run();
  } catch (error) {
    if (error.code !== 'ERR_CAPTURE_VIDEO') throw error;
    // "ended" tells it too, when the file is complete.
  } finally {
    line.stop();
  }
}

/** Fills the file until the capture ends; gives the exit status. */
async function recordInto(output, capture, options) {
  const file = new MediaFile(output, { hasAudio: capture.hasAudio });
  const recorder = new Recorder(capture, file, options);
  try {
    try {
      await file.start();
      tellTroubles(capture);
      console.log(`Recording ${describe(capture)} into ${options.file}`);
      const scaling = scalingText(
        capture.branches[0], capture.sourceSize, options.video);
      if (scaling !== null) console.log(scaling);
      await fill(recorder);
    } finally {
      await file.close();
    }
  } finally {
    console.log(`${options.file}: ${clockText(file.seconds)}, ` +
      `${recorder.pictures} pictures, ${sizeText(output.size)}`);
  }
  const end = await capture.ended;
  reportEnd(end);
  return end.error === null && recorder.pictures > 0 ? 0 : 1;
}

/** Records until it is stopped; resolves with the exit status. */
export async function run(options, { stop, tell }) {
  // First, so that nobody chooses a source for nothing.
  const output =
    new OutputFile(options.file, { mayReplace: options.overwrite });
  // Another recording may be about to take a file of that name.
  if (output.identity !== null) tell(output.identity);
  try {
    const capture = await session.startCapture({
      source: await chooseSource(options.source, 'record', stop),
      audio: options.audio,
      video: { ...options.video, keyframeEvery: keyframeSeconds },
      signal: stop,
    });
    try {
      return await recordInto(output, capture, options);
    } finally {
      await capture.stop();
    }
  } finally {
    output.close();
  }
}
