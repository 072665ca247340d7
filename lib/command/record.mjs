import process from 'node:process';

import session from '../session/index.js';
import { chooseSource } from './chosen_source.mjs';
import { scalingText, tellTroubles } from './notices.mjs';
import { parseRecord } from './record_options.mjs';
import { describeTarget, openTarget } from './record_target.mjs';
import { removeLeftover } from './recording/output_file.mjs';
import { standardOutput } from './recording/pipe_output.mjs';
import { Recorder } from './recording/recorder.mjs';
import { shownAddress } from './recording/stream_address.mjs';
import { JsonReport } from './report_json.mjs';
import { TextReport } from './report_text.mjs';
import { TerminalKeys } from './terminal_keys.mjs';

// A killed recording ends with its last whole piece, and pieces begin with
// keyframes.
const keyframeSeconds = 1;

export const parse = (args) => parseRecord(args, process.env);
export const endsItself = true;

/** What is asked for while it runs. */
export const orders = Object.freeze({
  signals: { SIGUSR1: 'pause', SIGUSR2: 'save' },
  keys: { p: 'pause', ' ': 'pause', s: 'save', q: 'stop' },
});

/** A recording that was ended by force leaves no file with nothing in it. */
export const lookAfter = (_, { name, identity }) =>
  removeLeftover(name, identity);

function hintsOf(capture, { video, replay }) {
  const hints = [
    scalingText(capture.branches[0], capture.sourceSize, video),
    TerminalKeys.areThere()
      ? `Keys: p pauses, ${replay === null ? '' : 's saves, '}q ends` : null,
  ];
  return hints.filter((hint) => hint !== null);
}

/** Does what is asked for while the capture runs; returns what ends that. */
function listen(asked, capture, target, report) {
  const hint = TerminalKeys.areThere() ? '; p goes on' : '';
  const listeners = {
    pause() {
      if (!capture.isActive) return;
      if (capture.isPaused) capture.resume();
      else capture.pause();
    },
    save() {
      target.save?.().catch((error) => report.trouble(error));
    },
  };
  capture.events.on('paused', () => report.paused({ hint }));
  capture.events.on('resumed', () => report.resumed());
  tellTroubles(capture, {
    trouble: (error) => report.trouble(error),
    recovered: (recovery) => report.recovered(recovery),
  });
  for (const [name, listener] of Object.entries(listeners)) {
    asked.on(name, listener);
  }
  return () => {
    for (const [name, listener] of Object.entries(listeners)) {
      asked.off(name, listener);
    }
  };
}

async function fill(recorder) {
  try {
    await recorder.run();
  } catch (error) {
    if (error.code !== 'ERR_CAPTURE_VIDEO') throw error;
    // "ended" tells it too, when the file is complete.
  }
}

/** What became of all of it; null for a replay, of which each file is told. */
function summaryOf({ output, replay }, recorder, target, files) {
  if (replay !== null) return null;
  const { seconds, pictures, size } = target;
  const names = {
    file: files.length === 1 ? files[0] : `${files.length} files`,
    pipe: 'in all',
    stream: shownAddress,
  };
  const name = output.kind === 'stream' ? names.stream(output.name)
    : names[output.kind];
  return { name, seconds, pictures, size, dropped: recorder.dropped };
}

/** Records until the capture ends; gives the exit status. */
async function recordInto(target, capture, options, { asked, report, files }) {
  const recorder = new Recorder(capture, target, options);
  const stopListening = listen(asked, capture, target, report);
  const { output } = options;
  let failure = null;
  let end = null;
  try {
    try {
      await target.begin({
        hasAudio: capture.hasAudio,
        forceKeyframe: () => capture.isActive && capture.forceKeyframe(),
      });
      report.started({
        capture,
        output: output.kind === 'stream' ? shownAddress(output.name)
          : output.name,
        to: describeTarget(options),
        hints: hintsOf(capture, options),
      });
      report.startProgress(() => recorder.status());
      await fill(recorder);
    } finally {
      report.stopProgress();
      await target.close();
    }
    end = await capture.ended;
  } catch (error) {
    failure = error;
    throw error;
  } finally {
    stopListening();
    const isOne = output.kind === 'file' && options.limits === null &&
      options.replay === null;
    const written = isOne ? [output.name] : files;
    report.ended({
      end,
      failure,
      summary: summaryOf(options, recorder, target, written),
      files: isOne && target.pictures === 0 ? [] : written,
    });
  }
  return end.error === null && target.pictures > 0 ? 0 : 1;
}

async function record(options, { stop, tell, asked, report, files }) {
  // First, so that nobody chooses a source for nothing.
  const target = await openTarget(options, { report, tell });
  let capture;
  try {
    capture = await session.startCapture({
      source: await chooseSource(options.source, 'record', stop,
        (text) => report.advice(text)),
      audio: options.audio,
      video: { ...options.video, keyframeEvery: keyframeSeconds },
      signal: stop,
    });
  } catch (error) {
    await target.close();
    report.ended({ end: null, failure: error, summary: null, files: [] });
    throw error;
  }
  try {
    return await recordInto(target, capture, options,
      { asked, report, files });
  } finally {
    await capture.stop();
  }
}

/** Records until it is stopped; resolves with the exit status. */
export async function run(options, { stop, tell, orders: asked }) {
  // What is recorded is all that goes to where it goes.
  const stream = options.output.name === standardOutput ? process.stderr
    : process.stdout;
  const report =
    options.json ? new JsonReport(stream) : new TextReport(stream);
  const files = [];
  const tellFile = report.file.bind(report);
  report.file = (file) => {
    files.push(file.name);
    tellFile(file);
  };
  return record(options, { stop, tell, asked, report, files });
}
