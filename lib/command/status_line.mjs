import process from 'node:process';

// A terminal shows one line that moves; a log gets a line now and then.
const terminalPeriodMs = 250;
const logPeriodMs = 5000;

const levelSteps = 10;
const quietestDb = -60;

export function clockText(seconds) {
  const whole = Math.floor(seconds);
  const two = (value) => String(value).padStart(2, '0');
  const hours = Math.floor(whole / 3600);
  return `${hours > 0 ? `${hours}:` : ''}${two(Math.floor(whole / 60) % 60)}:${
    two(whole % 60)}`;
}

/** A level of sound from 0 to 1 as a bar and in decibels. */
export function levelText(peak) {
  const db = Math.max(quietestDb, 20 * Math.log10(peak));
  const filled = Math.round((1 - db / quietestDb) * levelSteps);
  const bar = '#'.repeat(filled).padEnd(levelSteps, '-');
  return `[${bar}] ${db <= quietestDb ? 'silent' : `${db.toFixed(0)} dB`}`;
}

export function statusText({ seconds, fps, bitsPerSecond, dropped, peak }) {
  const parts = [
    clockText(seconds),
    `${fps.toFixed(1)} fps`,
    `${(bitsPerSecond / 1e6).toFixed(2)} Mbit/s`,
    `${dropped} dropped`,
  ];
  if (peak !== null) parts.push(`sound ${levelText(peak)}`);
  return parts.join('  ');
}

/** Prints what `read` returns again and again, until it is stopped. */
export class StatusLine {
  #read;
  #timer;
  #isTerminal = process.stdout.isTTY === true;

  constructor(read) {
    this.#read = read;
    this.#timer = setInterval(() => this.#show(),
      this.#isTerminal ? terminalPeriodMs : logPeriodMs);
  }

  #show() {
    const text = statusText(this.#read());
    process.stdout.write(this.#isTerminal ? `\r${text}\x1b[K` : `${text}\n`);
  }

  stop() {
    clearInterval(this.#timer);
    if (this.#isTerminal) process.stdout.write('\r\x1b[K');
  }
}
