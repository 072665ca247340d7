import { execFile } from 'node:child_process';
import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { collectText, endHelper, startHelper, waitForText } from
  './processes.mjs';

const run = promisify(execFile);
const program =
  fileURLToPath(new URL('../../bin/linux-capture.mjs', import.meta.url));

/** Kills a process and all that it has started: none of them may go on. */
function killAll(pid) {
  let children = '';
  try {
    children = readFileSync(`/proc/${pid}/task/${pid}/children`, 'utf8');
    process.kill(pid, 'SIGKILL');
  } catch {
    // It has ended meanwhile.
  }
  for (const child of children.trim().split(' ').filter(Boolean)) {
    killAll(Number(child));
  }
}

/**
 * Starts the command linux-capture; `environment` is added to this one's, and
 * `prefix` is a command that runs it.
 */
export function startCommand(args, environment = {}, { prefix = [] } = {}) {
  const [name, ...words] = [...prefix, process.execPath, program, ...args];
  const child = startHelper(name, words, {
    env: { ...process.env, ...environment },
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  const output = collectText(child.stdout);
  const errors = collectText(child.stderr);
  const closed = once(child, 'close');
  const waitFor = (pattern, what) => waitForText(child, output, pattern, what)
    .catch((error) => {
      throw new Error(`${error.message}${errors.text}`);
    });
  return {
    child,
    output,
    errors,
    waitFor,
    /**
     * The line that a recording prints after its first five seconds, of which
     * the last pictures may still be missing in it.
     */
    waitForProgress: () => waitFor(/^00:0[4-9] /m, 'a line of its progress'),
    /** The process that captures. */
    innerPid: () => Number(readFileSync(
      `/proc/${child.pid}/task/${child.pid}/children`, 'utf8')
      .trim().split(' ')[0]),
    /** How it ended; one that hangs is killed, which shows here. */
    async end(timeoutMs = 40_000) {
      const timer = setTimeout(() => killAll(child.pid), timeoutMs);
      const [status, signal] = await closed;
      clearTimeout(timer);
      return { status, signal, stdout: output.text, stderr: errors.text };
    },
    stop: () => endHelper(child),
  };
}

export const runCommand = (args, environment, options) =>
  startCommand(args, environment, options).end();

/** What ffprobe reads out of a file, and what ffmpeg complains about. */
export async function probeFile(file) {
  const { stdout } = await run('ffprobe', ['-v', 'error', '-of', 'json',
    '-count_packets', '-show_streams', '-show_format', file]);
  const { streams, format } = JSON.parse(stdout);
  // The times as they are: counted in pictures of the rate that ffmpeg guesses,
  // two of them may fall together.
  const { stderr } = await run('ffmpeg', ['-v', 'warning', '-i', file,
    '-fps_mode', 'passthrough', '-enc_time_base', '-1', '-f', 'null', '-']);
  return {
    video: streams.filter((stream) => stream.codec_type === 'video'),
    audio: streams.filter((stream) => stream.codec_type === 'audio'),
    seconds: Number(format.duration),
    complaints: stderr,
  };
}
