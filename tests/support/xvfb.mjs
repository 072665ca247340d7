import { collectText, endHelper, startHelper, waitForText } from
  './processes.mjs';

/**
 * Starts an X server of its own on a display number that the server itself
 * finds free, so that a display in use is never touched. `without` names the
 * extensions that it lacks.
 */
export async function startXvfb({
  width = 640, height = 360, depth = 24, without = [],
} = {}) {
  const child = startHelper(
    'Xvfb',
    [
      '-displayfd', '3',
      '-screen', '0', `${width}x${height}x${depth}`,
      '-nolisten', 'tcp',
      // Without this the server resets when its last client leaves, which is
      // what happens between two captures.
      '-noreset',
      ...without.flatMap((extension) => ['-extension', extension]),
    ],
    { stdio: ['ignore', 'ignore', 'pipe', 'pipe'] },
  );
  const errors = collectText(child.stderr);
  const answer = collectText(child.stdio[3]);
  let match;
  try {
    match = await waitForText(child, answer, /^(\d+)\n/, 'Xvfb is ready');
  } catch (error) {
    await endHelper(child);
    throw new Error(`${error.message}\n${errors.text}`);
  }
  const thaw = () => child.kill('SIGCONT');
  return {
    display: `:${match[1]}`,
    socket: `/tmp/.X11-unix/X${match[1]}`,
    /** Ends the server as a user's session would end it. */
    stop: () => {
      thaw();
      return endHelper(child);
    },
    /** Makes the server stand still, and go on. */
    freeze: () => child.kill('SIGSTOP'),
    thaw,
    /** Lets it stand still, and go on. */
    pause: () => child.kill('SIGSTOP'),
    resume: () => child.kill('SIGCONT'),
    /** Takes the server away without any good-bye. */
    kill: () => endHelper(child, 'SIGKILL'),
  };
}
