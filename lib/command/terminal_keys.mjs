import { readFileSync } from 'node:fs';
import process from 'node:process';

const interrupt = '\x03';
const suspend = '\x1a';
const quit = '\x1c';

/**
 * True when this process may change the terminal: one in the background would
 * be stopped for it.
 */
function isInForeground() {
  const fields = readFileSync('/proc/self/stat', 'utf8')
    .replace(/^.*\) /s, '').split(' ');
  const [, , processGroup, , , terminalGroup] = fields;
  return processGroup === terminalGroup;
}

/**
 * Reads single keys of the terminal, if there is one, without their being
 * shown. Ctrl-C and the like do what they do anywhere.
 */
export class TerminalKeys {
  #input = process.stdin;
  #isReading = false;
  #onKey;
  #onInterrupt;
  #onData = (text) => {
    for (const key of text) this.#press(key);
  };
  #onContinue = () => this.#read();

  constructor({ onKey, onInterrupt }) {
    this.#onKey = onKey;
    this.#onInterrupt = onInterrupt;
    if (!TerminalKeys.areThere()) return;
    process.on('SIGCONT', this.#onContinue);
    this.#read();
  }

  static areThere() {
    return process.stdin.isTTY === true && process.stdout.isTTY === true;
  }

  #read() {
    if (this.#isReading || !isInForeground()) return;
    this.#isReading = true;
    this.#input.setRawMode(true);
    this.#input.setEncoding('utf8').on('data', this.#onData).resume();
  }

  #release() {
    if (!this.#isReading) return;
    this.#isReading = false;
    this.#input.off('data', this.#onData).pause();
    if (isInForeground()) this.#input.setRawMode(false);
  }

  #press(key) {
    switch (key) {
      case interrupt:
        this.#onInterrupt();
        break;
      case quit:
        this.stop();
        process.kill(0, 'SIGQUIT');
        break;
      case suspend:
        this.#release();
        process.kill(0, 'SIGTSTP');
        break;
      default:
        this.#onKey(key);
    }
  }

  stop() {
    process.off('SIGCONT', this.#onContinue);
    this.#release();
  }
}
