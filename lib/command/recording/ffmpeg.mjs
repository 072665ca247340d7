import { spawn } from 'node:child_process';
import { createInterface } from 'node:readline';

import systemPackages from '../../system_packages.js';

const { installSentence, namesOf } = systemPackages;

const missingText = () =>
  `ffmpeg is not installed. ${installSentence([namesOf('ffmpeg')])}`;

/** The last line that a program complained in. */
function lastLineOf(stream) {
  const last = { text: '' };
  createInterface({ input: stream }).on('line', (text) => {
    if (text.trim() !== '') last.text = text.trim();
  });
  return last;
}

/**
 * Starts ffmpeg, which may be anything that a user has installed. `ended`
 * resolves with what it said at last when it ended by itself, or by a signal
 * that was not ours; it never rejects.
 */
export function startFfmpeg(args, { output = 'ignore' } = {}) {
  const child = spawn('ffmpeg',
    ['-hide_banner', '-nostdin', '-v', 'error', ...args], {
      // Ctrl-C in a terminal is for the host alone, which ends this one.
      detached: true,
      stdio: ['pipe', output, 'pipe'],
    });
  const last = lastLineOf(child.stderr);
  // It may end while it is written to; `ended` tells.
  child.stdin.on('error', () => {});
  const ended = new Promise((resolve) => {
    child.once('error', (error) => resolve({ isGood: false,
      message: error.code === 'ENOENT' ? missingText() : error.message }));
    child.once('close', (status, signal) => resolve({ isGood: status === 0,
      message: signal !== null ? `ffmpeg was ended by ${signal}`
        : last.text || `ffmpeg ended with status ${status}` }));
  });
  return { child, ended };
}

/** Resolves when ffmpeg can be started; rejects with what to install. */
export async function requireFfmpeg() {
  const { child, ended } = startFfmpeg(['-version']);
  child.stdin.end();
  const { isGood, message } = await ended;
  if (!isGood) throw new Error(message);
}
