import { spawn } from 'node:child_process';
import { collectText } from './processes.mjs';

const importLine = (names, file) =>
  `import { ${names} } from ${JSON.stringify(
    new URL(file, import.meta.url).href)};\n`;

const imports =
  importLine('addon', './addon.mjs') +
  importLine('collect', './capture.mjs') +
  importLine('monitorRequest, windowRequest, withProcessAudio',
    './requests.mjs') +
  importLine('until', './until.mjs');

/**
 * Runs a piece of module code in a Node process of its own, where `addon`,
 * `collect`, `until` and the request builders are at hand, and tells how that
 * process ended. One that does not end in time is killed and says so.
 */
export function runNode(body, { timeoutMs = 20_000, ...options } = {}) {
  return startNode(body, options).end(timeoutMs);
}

/** As runNode, for a test that talks to the process while it runs. */
export function startNode(body, { display, environment = {} } = {}) {
  const env = { ...process.env, ...environment };
  if (display === undefined) delete env.DISPLAY;
  else env.DISPLAY = display;
  // A test runner's own reporting must not leak into the child.
  delete env.NODE_TEST_CONTEXT;
  const child = spawn(
    process.execPath,
    ['--input-type=module', '--eval', imports + body],
    { env, stdio: ['pipe', 'pipe', 'pipe'] },
  );
  const stdout = collectText(child.stdout);
  const stderr = collectText(child.stderr);
  const closed = new Promise((resolve, reject) => {
    child.once('error', reject);
    child.once('close', (code, signal) => resolve({ code, signal }));
  });
  // The input pipe may break when the child ends first; that is no failure.
  child.stdin.on('error', () => {});
  return {
    pid: child.pid,
    stdout,
    stderr,
    child,
    async end(timeoutMs) {
      let isTimedOut = false;
      const timer = setTimeout(() => {
        isTimedOut = true;
        child.kill('SIGKILL');
      }, timeoutMs);
      const { code, signal } = await closed;
      clearTimeout(timer);
      return {
        pid: child.pid,
        code,
        signal,
        isTimedOut,
        stdout: stdout.text,
        stderr: stderr.text,
      };
    },
  };
}

/** The stage texts among a process's error output, in order. */
export function stagesOf(text, pid) {
  const line = new RegExp(
    `^\\[linux_capture_stage\\] pid=${pid} t=\\d+ stage=(.*)$`, 'gm');
  return Array.from(text.matchAll(line), ([, stage]) => stage);
}
