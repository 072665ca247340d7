import {
  closeSync, constants, fstatSync, openSync, statSync, writeSync,
} from 'node:fs';
import { Socket } from 'node:net';
import { isatty } from 'node:tty';

// How long one who does not read is waited for when there is nothing more.
const lastPatienceMs = 2000;

const reasons = {
  ECONNRESET: 'nobody reads it any more',
  EDQUOT: 'the quota of the disk is used up',
  EFBIG: 'it may not become larger',
  ENOSPC: 'the disk is full',
  EPIPE: 'nobody reads it any more',
};

/** The name of the standard output, among names of files. */
export const standardOutput = '-';

const isPipe = (status) => status.isFIFO() || status.isSocket();

/** True for the name of something that takes what it is given in order. */
export function isPipeName(name) {
  if (name === standardOutput) return true;
  try {
    return isPipe(statSync(name));
  } catch {
    return false;
  }
}

/**
 * The standard output for oneself: what is done to it as a pipe, others who
 * have it too must not notice. A socket cannot be opened once more.
 */
function openStandardOutput() {
  if (isatty(1)) {
    throw new Error('the recording would go to the terminal; put a "|" and ' +
      'who reads it, or a ">" and a file, behind the command');
  }
  try {
    return openSync('/proc/self/fd/1',
      constants.O_WRONLY | constants.O_APPEND | constants.O_NONBLOCK);
  } catch {
    return 1;
  }
}

function openPipe(name) {
  try {
    return openSync(name, constants.O_WRONLY | constants.O_NONBLOCK);
  } catch (error) {
    throw error.code === 'ENXIO'
      ? new Error(`nobody reads from ${name}`, { cause: error })
      : Object.assign(new Error(`${name} cannot be written: ${error.message}`,
        { cause: error }), { code: error.code });
  }
}

/**
 * One who reads what is recorded, as it comes: a pipe, a socket, the standard
 * output wherever that goes. One who does not read holds up who writes, not the
 * capture. What goes wrong is kept in `failure`, as by an OutputFile.
 */
export class PipeOutput {
  #descriptor;
  #socket = null;
  #size = 0;
  #wake = null;
  #timer = null;
  container = 'stream';
  identity = null;
  failure = null;

  /** `stream` is one that is open already, under any name. */
  constructor(name, { stream = null } = {}) {
    this.name = name === standardOutput ? 'the standard output' : name;
    if (stream !== null) {
      this.#use(stream);
      return;
    }
    this.#descriptor = name === standardOutput ? openStandardOutput()
      : openPipe(name);
    if (isPipe(fstatSync(this.#descriptor))) {
      this.#use(new Socket(
        { fd: this.#descriptor, readable: false, writable: true }));
    }
  }

  #use(socket) {
    this.#socket = socket;
    socket.on('error', (error) => this.#fail(error));
    socket.on('close', () => this.#wake?.());
  }

  get size() {
    return this.#size;
  }

  async write(data) {
    if (this.failure !== null) return;
    if (this.#socket === null) this.#writeAll(data);
    else await this.#send(data);
    if (this.failure === null) this.#size += data.length;
    this.#timer?.refresh();
  }

  #writeAll(data) {
    try {
      for (let done = 0; done < data.length;) {
        done += writeSync(this.#descriptor, data, done);
      }
    } catch (error) {
      this.#fail(error);
    }
  }

  #send(data) {
    return new Promise((resolve) => {
      this.#wake = resolve;
      this.#socket.write(data, resolve);
    });
  }

  #fail(error) {
    this.failure ??= Object.assign(new Error(`${this.name} cannot be written: ${
      reasons[error.code] ?? error.message}`, { cause: error }),
    { code: error.code });
    this.#wake?.();
  }

  /** Nothing more comes: who does not read now is given up soon. */
  hurry() {
    this.#timer ??= setTimeout(() => {
      this.failure ??= new Error(
        `${this.name} cannot be written: nobody reads it at this moment`);
      this.#socket?.destroy();
    }, lastPatienceMs);
    this.#timer.unref();
  }

  async close() {
    if (this.#socket === null) {
      if (this.#descriptor > 2) closeSync(this.#descriptor);
      return;
    }
    if (!this.#socket.destroyed) {
      this.hurry();
      await new Promise((resolve) => {
        this.#socket.once('close', resolve);
        this.#socket.end(() => this.#socket.destroy());
      });
    }
    clearTimeout(this.#timer);
  }
}
