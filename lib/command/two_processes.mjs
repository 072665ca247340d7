import { spawn } from 'node:child_process';
import { EventEmitter, once } from 'node:events';
import process from 'node:process';
import { createInterface } from 'node:readline';
import { setTimeout as sleep } from 'node:timers/promises';

import { TerminalKeys } from './terminal_keys.mjs';

const programName = 'linux-capture';
const innerMark = 'LINUX_CAPTURE_COMMAND_INNER';
const stopMessage = 'stop';
const signals = ['SIGINT', 'SIGTERM', 'SIGHUP'];

// What the native libraries print in the course of a good capture.
const chatter = /^\[(linux_capture_stage|OpenH264)\]/;

// npx passes on the Ctrl-C that the terminal has sent to everybody already.
const sameSignalMs = 300;

// What a shell shows for a program that Ctrl-C has ended.
export const abortedStatus = 130;

// A program of a library may hold the pipe for longer than the process lives.
const lastLinesMs = 1000;

export const isInner = () => process.env[innerMark] === '1';

function showLines(stream, isVerbose) {
  // Else a line would go on where the moving one stands.
  const before =
    process.stdout.isTTY && process.stderr.isTTY ? '\r\x1b[K' : '';
  createInterface({ input: stream }).on('line', (line) => {
    if (isVerbose || !chatter.test(line)) {
      process.stderr.write(`${before}${line}\n`);
    }
  });
}

/** How the process ended, when all that it printed has been read. */
async function ended(child) {
  const closed = once(child, 'close');
  const exit = await Promise.race([once(child, 'exit'), closed]);
  await Promise.race([closed, sleep(lastLinesMs, null, { ref: false })]);
  return exit;
}

/** What signals and keys a command understands, as listeners that send it. */
function listenForOrders({ signals: ofSignals = {}, keys = {} }, send, stop) {
  const listeners = Object.entries(ofSignals).map(([signal, order]) => {
    const listener = () => send(order);
    process.on(signal, listener);
    return () => process.off(signal, listener);
  });
  if (Object.keys(keys).length > 0) {
    const terminal = new TerminalKeys({
      onInterrupt: stop,
      onKey(key) {
        const order = keys[key];
        if (order === stopMessage) stop();
        else if (order !== undefined) send(order);
      },
    });
    listeners.push(() => terminal.stop());
  }
  return () => listeners.forEach((end) => end());
}

/**
 * Runs this program once more and passes on what it prints, but for the
 * chatter of libraries. A signal asks it to stop, where it `endsItself`; a
 * second one ends it. `orders` has the words that other signals, and keys of
 * the terminal, are for it. `onTold` hears what its work tells.
 */
export async function runOuter(file, args,
  { verbose, endsItself, orders, onTold }) {
  // By this name signals are sent to it, and not to the other process.
  process.title = programName;
  let child;
  let askedAtMs = null;
  const onSignal = () => {
    const now = performance.now();
    if (askedAtMs === null && endsItself) {
      askedAtMs = now;
      // What has nothing left to do but to end hears nothing any more.
      if (child.connected) child.send(stopMessage, () => {});
    } else if (!endsItself || now - askedAtMs > sameSignalMs) {
      askedAtMs ??= now;
      child.kill('SIGKILL');
    }
  };
  // Before the other process is there, which would else outlive this one.
  for (const signal of signals) process.on(signal, onSignal);
  const stopListening = listenForOrders(orders, (order) => {
    if (child.connected) child.send(order, () => {});
  }, onSignal);
  try {
    child = spawn(process.execPath, [file, ...args], {
      env: { ...process.env, [innerMark]: '1' },
      stdio: ['inherit', 'inherit', 'pipe', 'ipc'],
    });
    child.on('message', onTold);
    showLines(child.stderr, verbose);
    const [code, signal] = await ended(child);
    if (signal === null) return code;
    if (askedAtMs !== null) return abortedStatus;
    process.stderr.write(`linux-capture: ended by ${signal}\n`);
    return 1;
  } finally {
    stopListening();
    for (const name of signals) process.removeListener(name, onSignal);
  }
}

/**
 * Runs `work` with an AbortSignal that fires when the outer process asks for
 * the end, and also when that process is gone, however it went, and with a
 * function that tells the outer process something, and an emitter of
 * the `orders` that come. Work that does not end itself ends with the outer
 * process.
 */
export async function runInner(work, { endsItself, orders }) {
  const controller = new AbortController();
  const stop = () => controller.abort();
  const tell = (what) => {
    if (process.connected) process.send(what, () => {});
  };
  const onGone = endsItself ? stop : () => process.exit(abortedStatus);
  const emitter = new EventEmitter();
  // The terminal, and who names the program, send signals to both processes.
  for (const signal of [...signals, ...Object.keys(orders.signals ?? {})]) {
    process.on(signal, () => {});
  }
  process.on('message', (message) => {
    if (message === stopMessage) stop();
    else emitter.emit(message);
  });
  process.on('disconnect', onGone);
  if (!process.connected) onGone();
  // Nobody may be left to read what is printed.
  process.stdout.on('error', () => {});
  process.stderr.on('error', () => {});
  try {
    return await work(controller.signal, tell, emitter);
  } finally {
    process.off('disconnect', onGone);
    if (process.connected) process.disconnect();
  }
}
