'use strict';

const process = require('node:process');

const { endProgram, describeFailure, startProgram } =
  require('../session/programs.js');
const { PublishError } = require('./errors.js');
const { FrameReader, makeFrame, makeFrames } = require('./frames.js');

const program = 'linux-capture-transport';
// A program that does not read is left behind: packets that are this late are
// of no use.
const mostWaitingBytes = 1 << 20;

const encode = (kind, text) => makeFrame(kind, Buffer.from(text));

function readLocal(text) {
  const local = { candidates: [] };
  for (const line of text.split('\n')) {
    const space = line.indexOf(' ');
    const key = line.slice(0, space);
    if (key.startsWith('candidate:')) local.candidates.push(line);
    else local[key] = line.slice(space + 1);
  }
  return local;
}

const serverLines = (servers) =>
  servers.map(({ kind, address, port, user, password }) => (kind === 'stun'
    ? `stun ${address} ${port}`
    : `${kind} ${address} ${port} ${user} ${password}`));

/**
 * The program that carries packets to the other side, as long as there is one
 * connection. What happens is told to `onState` (with "reachable", "connected",
 * "unreachable", "lost", "closed", or "ended" and a reason), `onReport` gets the
 * datagrams of reports.
 */
class Transport {
  #program;
  #takeLocal;
  #onState;
  #onReport;
  #isClosed = false;
  #local;
  // Of this turn of the event loop: a system call for each would cost more than
  // all that is done with a packet otherwise.
  #waiting = [];

  constructor({ onState, onReport }) {
    this.#onState = onState;
    this.#onReport = onReport;
    this.dropped = 0;
    this.#local = new Promise((resolve, reject) => {
      this.#takeLocal = { resolve, reject };
    });
    this.#local.catch(() => {});
    const reader = new FrameReader((kind, payload) =>
      this.#take(kind, payload));
    this.#program = startProgram(program, [], {
      onData: (bytes) => {
        try {
          reader.add(bytes);
        } catch (error) {
          this.#fail(error);
        }
      },
    });
    this.#program.ended.then((end) => this.#programEnded(end));
  }

  /** Resolves with { user, password, fingerprint, candidates }. */
  open({ servers, isServerHere }) {
    const lines = serverLines(servers);
    if (isServerHere) lines.push('loopback');
    this.#write(encode('o', lines.join('\n')));
    return this.#local;
  }

  /** `relays` are servers that were told with the answer. */
  connect({ user, password, fingerprint, setup, candidates }, relays = []) {
    this.#write(encode('r', [
      `user ${user}`, `password ${password}`, `fingerprint ${fingerprint}`,
      `setup ${setup}`, ...serverLines(relays), ...candidates,
    ].join('\n')));
  }

  send(packet) {
    if (this.#program.child.stdin.writableLength > mostWaitingBytes) {
      this.dropped += 1;
      return;
    }
    this.#waiting.push(packet);
    if (this.#waiting.length === 1) process.nextTick(() => this.#sendWaiting());
  }

  #sendWaiting() {
    if (this.#waiting.length === 0) return;
    const frames = makeFrames('p', this.#waiting);
    this.#waiting = [];
    this.#write(frames);
  }

  #write(frame) {
    if (!this.#isClosed) this.#program.child.stdin.write(frame);
  }

  #take(kind, payload) {
    if (this.#isClosed) return;
    if (kind === 'l') {
      this.#takeLocal.resolve(readLocal(payload.toString('utf8')));
    } else if (kind === 's') {
      this.#onState(payload.toString('utf8'));
    } else if (kind === 'c') {
      this.#onReport(payload);
    }
  }

  #programEnded(end) {
    this.#fail(new Error(describeFailure(program, end)));
  }

  #fail(cause) {
    if (this.#isClosed) return;
    this.#isClosed = true;
    const error =
      new PublishError('ERR_PUBLISH_PROGRAM', cause.message, { cause });
    this.#takeLocal.reject(error);
    this.#onState('ended', error);
  }

  /** Says good-bye; resolves when the program has ended. */
  async close() {
    this.#sendWaiting();
    this.#isClosed = true;
    await endProgram(this.#program);
  }
}

module.exports = { Transport };
