import { built } from '../../support/built.mjs';
import { collectText, endHelper, startHelper, waitForText } from
  '../../support/processes.mjs';

/**
 * Shows a window of numbered pictures on a desktop with the fields `options`
 * and `environment`, whichever its compositor is. It takes the commands of
 * programs/wayland_window.cc.
 */
export async function startWindow(desktop, {
  width = 640, height = 360, fps = 30, title = 'numbered pictures',
  isFullscreen = false,
} = {}) {
  const child = startHelper(built('wayland_window'), [
    '--size', `${width}x${height}`, '--fps', String(fps), '--title', title,
    ...isFullscreen ? ['--fullscreen'] : [],
  ], { ...desktop.options, env: desktop.environment,
    stdio: ['pipe', 'pipe', 'pipe'] });
  child.stdin.on('error', () => {});
  const output = collectText(child.stdout);
  const errors = collectText(child.stderr);
  const waitFor = (pattern, what) =>
    waitForText(child, output, pattern, what, 20_000);
  await waitFor(/^shown /m, 'its first picture').catch((error) => {
    throw new Error(`${error.message}${errors.text}`);
  });
  return {
    child,
    output,
    waitFor,
    command: (line) => child.stdin.write(`${line}\n`),
    /** One more picture; its number and when it left, on the monotonic clock. */
    async sendOne() {
      const before = output.text.length;
      child.stdin.write('once\n');
      const [, number, at] = await waitForText(child,
        { get text() { return output.text.slice(before); } },
        /^sent (\d+) at=(\d+)$/m, 'one picture');
      return { number: Number(number), us: Number(at) };
    },
    stop: () => endHelper(child),
  };
}
