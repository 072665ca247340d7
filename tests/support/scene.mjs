import { built } from './built.mjs';
import { collectText, endHelper, startHelper, waitForText } from
  './processes.mjs';

const sceneProgram = built('scene');

/** Shows the numbered test scene on `display`; see scene/scene_window.h. */
export async function startScene({
  display, width = 640, height = 360, fps = 60, x = 0, y = 0,
  isStatic = false, isFramed = false,
}) {
  const args = [
    '--size', `${width}x${height}`, '--fps', String(fps),
    '--x', String(x), '--y', String(y),
  ];
  if (isStatic) args.push('--static');
  if (isFramed) args.push('--frame');
  const child = startHelper(sceneProgram, args, {
    env: { ...process.env, DISPLAY: display },
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  const errors = collectText(child.stderr);
  const output = collectText(child.stdout);
  let match;
  try {
    match = await waitForText(
      child, output, /ready window=(0x[0-9a-f]+)\n/, 'the scene is shown');
  } catch (error) {
    throw new Error(`${error.message}\n${errors.text}`);
  }
  return {
    window: Number(match[1]),
    /** Destroys the window; the program runs on. */
    closeWindow: () => child.kill('SIGUSR1'),
    stop: () => endHelper(child),
  };
}
