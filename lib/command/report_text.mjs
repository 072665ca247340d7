import process from 'node:process';

import visible from '../visible_text.js';
import { clockText, sizeText } from './figures.mjs';
import { StatusLine } from './status_line.mjs';

const { quoted, visibleText } = visible;

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

/** A word of a shell; null for a name that cannot be shown as it is. */
export function shellWord(name) {
  if (visibleText(name) !== name) return null;
  const word = name.startsWith('-') ? `./${name}` : name;
  return /^[\w@%+=:,./-]+$/.test(word) ? word
    : `'${word.replaceAll('\'', String.raw`'\''`)}'`;
}

const lengthText = ({ seconds, pictures, size }) =>
  `${clockText(seconds)}, ${pictures} pictures, ${sizeText(size)}`;

/** Tells people how a recording goes. */
export class TextReport {
  #out;
  #line = null;

  /** `stream` is where it is told. */
  constructor(stream = process.stdout) {
    this.#out = stream;
  }

  #tell(text) {
    this.#line?.clear();
    this.#out.write(`${text}\n`);
  }

  #complain(text) {
    this.#line?.clear();
    process.stderr.write(`linux-capture: ${text}\n`);
  }

  advice(text) {
    this.#tell(text);
  }

  started({ capture, to, hints }) {
    this.#tell(`Recording ${describe(capture)} ${to}`);
    for (const hint of hints) this.#tell(hint);
  }

  /** Shows how it goes until `stopProgress`. */
  startProgress(read) {
    this.#line = new StatusLine(read, { stream: this.#out });
  }

  stopProgress() {
    this.#line?.stop();
    this.#line = null;
  }

  paused({ hint }) {
    this.#tell(`Paused${hint}`);
  }

  resumed() {
    this.#tell('Recording again');
  }

  trouble({ message }) {
    this.#complain(message);
  }

  recovered({ message }) {
    this.#complain(message);
  }

  /** One of several files is complete. */
  file(file) {
    this.#tell(`${visibleText(file.name)}: ${lengthText(file)}`);
  }

  /** `files` are the names of all that was written. */
  ended({ end, summary, files }) {
    if (summary !== null) {
      const { name, dropped, seconds, size } = summary;
      const rate = seconds > 0 ? size * 8 / seconds / 1e6 : 0;
      this.#tell(`${name}: ${lengthText(summary)}, ${
        rate.toFixed(2)} Mbit/s, ${dropped} dropped`);
    }
    const word = files.length > 0 ? shellWord(files[0]) : null;
    if (word !== null) this.#tell(`To watch it: xdg-open ${word}`);
    if (end === null) return;
    const { reason, error, detail } = end;
    if (error !== null) this.#complain(error.message);
    else if (reason === 'source-ended') this.#tell(`The source ended: ${detail}`);
  }
}
