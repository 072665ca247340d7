import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { until } from './until.mjs';

const started = new Set();

// A test process that dies early must not leave its helpers behind.
process.once('exit', () => {
  for (const child of started) child.kill('SIGKILL');
});

/** Starts a helper program that ends with this process at the latest. */
export function startHelper(command, args, options) {
  const child = spawn(command, args, options);
  started.add(child);
  child.once('close', () => started.delete(child));
  return child;
}

export function hasEnded(child) {
  return child.exitCode !== null || child.signalCode !== null;
}

/** Ends one helper: asks first, insists after five seconds. */
export async function endHelper(child, signal = 'SIGTERM') {
  if (hasEnded(child)) return;
  const ended = once(child, 'exit');
  const insist = setTimeout(() => child.kill('SIGKILL'), 5_000);
  child.kill(signal);
  await ended;
  clearTimeout(insist);
}

/** Collects a stream as text; the result's `text` grows while it is read. */
export function collectText(stream) {
  const collected = { text: '' };
  stream.setEncoding('utf8');
  stream.on('data', (chunk) => {
    collected.text += chunk;
  });
  return collected;
}

/** Waits for a match in collected text, or for the helper's early end. */
export async function waitForText(child, collected, pattern, what,
  timeoutMs = undefined) {
  return until(() => {
    const match = collected.text.match(pattern);
    if (match === null && hasEnded(child)) {
      throw new Error(`the helper ended before ${what}: ${collected.text}`);
    }
    return match;
  }, what, timeoutMs);
}
