import { execFile } from 'node:child_process';
import { once } from 'node:events';
import { built } from './built.mjs';
import { collectText, endHelper, hasEnded, startHelper } from
  './processes.mjs';
import { until } from './until.mjs';

export const targetsProgram = built('linux-capture-targets');

/** Runs linux-capture-targets to its end. */
export function runTargetsProgram(args = [], env = process.env) {
  return new Promise((resolve) => {
    execFile(targetsProgram, args, 
      { env, timeout: 30_000, maxBuffer: 1 << 28 },
      (error, stdout, stderr) => resolve({
        status: error === null ? 0 : error.code ?? error.signal,
        stdout,
        stderr,
      }));
  });
}

/** What it lists; it has to end well and without a word of complaint. */
export async function listTargets(args = [], env = process.env) {
  const { status, stdout, stderr } = await runTargetsProgram(args, env);
  if (status !== 0 || stderr !== '') {
    throw new Error(`linux-capture-targets ended with ${status}: ${stderr}`);
  }
  return JSON.parse(stdout);
}

/** Starts the program listening to what plays. */
export function followTargets(env = process.env) {
  const child = startHelper(targetsProgram, ['--follow'],
    { env, stdio: ['pipe', 'pipe', 'pipe'] });
  child.stdin.on('error', () => {});
  const output = collectText(child.stdout);
  const errors = collectText(child.stderr);
  const closed = once(child, 'close');
  const lists = () => output.text.split('\n').slice(0, -1)
    .map((line) => JSON.parse(line));
  return {
    child,
    /** All lists so far. */
    lists,
    /** Waits until the last list is as wanted. */
    waitFor: (isWanted, what) => until(() => {
      if (hasEnded(child)) throw new Error(`it ended: ${errors.text}`);
      const last = lists().at(-1);
      return last !== undefined && isWanted(last) && last;
    }, what, 30_000),
    /** Closes the input, which asks the program to end. */
    close: () => child.stdin.end(),
    async end() {
      const timer = setTimeout(() => child.kill('SIGKILL'), 20_000);
      const [status, signal] = await closed;
      clearTimeout(timer);
      return { status, signal, stderr: errors.text };
    },
    stop: () => endHelper(child),
  };
}
