import { spawn } from 'node:child_process';
import process from 'node:process';
import { createInterface } from 'node:readline';

const innerMark = 'LINUX_CAPTURE_COMMAND_INNER';
const stopMessage = 'stop';
const signals = ['SIGINT', 'SIGTERM', 'SIGHUP'];

// What the native libraries print in the course of a good capture.
const chatter = /^\[(linux_capture_stage|OpenH264)\]/;

export const isInner = () => process.env[innerMark] === '1';

function showLines(stream, isVerbose) {
  createInterface({ input: stream }).on('line', (line) => {
    if (isVerbose || !chatter.test(line)) process.stderr.write(`${line}\n`);
  });
}

/**
 * Runs this program once more and passes on what it prints, but for the
 * chatter of libraries. A signal asks it to stop; a second one ends it.
 */
export function runOuter(file, args, { verbose = false }) {
  const child = spawn(process.execPath, [file, ...args], {
    env: { ...process.env, [innerMark]: '1' },
    stdio: ['inherit', 'inherit', 'pipe', 'ipc'],
  });
  showLines(child.stderr, verbose);
  let isAsked = false;
  const onSignal = () => {
    if (isAsked || !child.connected) child.kill('SIGKILL');
    else child.send(stopMessage, () => {});
    isAsked = true;
  };
  for (const signal of signals) process.on(signal, onSignal);
  return new Promise((resolve, reject) => {
    child.once('error', reject);
    child.once('close', (code, signal) => {
      for (const name of signals) process.removeListener(name, onSignal);
      if (signal !== null) {
        process.stderr.write(`linux-capture: ended by ${signal}\n`);
      }
      resolve(code ?? 1);
    });
  });
}

/**
 * Runs `work` with an AbortSignal that fires when the outer process asks for
 * the end, and also when that process is gone, however it went.
 */
export async function runInner(work) {
  const controller = new AbortController();
  const stop = () => controller.abort();
  // The terminal sends its signals to both processes.
  for (const signal of signals) process.on(signal, () => {});
  process.on('message', (message) => {
    if (message === stopMessage) stop();
  });
  process.on('disconnect', stop);
  // Nobody may be left to read what is printed.
  process.stdout.on('error', () => {});
  process.stderr.on('error', () => {});
  try {
    return await work(controller.signal);
  } finally {
    if (process.connected) process.disconnect();
  }
}
