import { execFile } from 'node:child_process';
import { fileURLToPath } from 'node:url';

const targetsProgram = process.env.LINUX_CAPTURE_TARGETS ??
  fileURLToPath(new URL('../../build/release/linux-capture-targets',
    import.meta.url));

/** Runs linux-capture-targets to its end. */
export function runTargetsProgram(args = [], env = process.env) {
  return new Promise((resolve) => {
    execFile(targetsProgram, args, { env, timeout: 30_000 },
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
