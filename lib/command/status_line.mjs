import process from 'node:process';

import { clockText, sizeText } from './figures.mjs';

// A terminal shows one line that moves; a log gets a line now and then.
const terminalPeriodMs = 250;
const logPeriodMs = 5000;

const levelSteps = 10;
const quietestDb = -60;

/** A level of sound from 0 to 1 as a bar and in decibels. */
export function levelText(peak) {
  const db = Math.max(quietestDb, 20 * Math.log10(peak));
  const filled = Math.round((1 - db / quietestDb) * levelSteps);
  const bar = '#'.repeat(filled).padEnd(levelSteps, '-');
  return `[${bar}] ${db <= quietestDb ? 'silent' : `${db.toFixed(0)} dB`}`;
}

export function statusText({
  seconds, fps, bitsPerSecond, bytes, dropped, peak, isPaused,
}) {
  const parts = [
    clockText(seconds),
    isPaused ? 'paused' : `${fps.toFixed(1)} fps`,
    `${(bitsPerSecond / 1e6).toFixed(2)} Mbit/s`,
    sizeText(bytes),
    `${dropped} dropped`,
  ];
  if (peak !== null) parts.push(`sound ${levelText(peak)}`);
  return parts.join('  ');
}

/** Prints what `read` returns again and again, until it is stopped. */
export class StatusLine {
  #read;
  #textOf;
  #timer;
  #stream;
  #isTerminal;

  constructor(read, { stream = process.stdout, textOf = statusText } = {}) {
    this.#read = read;
    this.#textOf = textOf;
    this.#stream = stream;
    this.#isTerminal = stream.isTTY === true;
    this.#timer = setInterval(() => this.#show(),
      this.#isTerminal ? terminalPeriodMs : logPeriodMs);
  }

  #show() {
    const text = this.#textOf(this.#read());
    this.#stream.write(this.#isTerminal ? `\r${text}\x1b[K` : `${text}\n`);
  }

  stop() {
    clearInterval(this.#timer);
    this.clear();
  }

  /** Makes place for another line. */
  clear() {
    if (this.#isTerminal) this.#stream.write('\r\x1b[K');
  }
}
