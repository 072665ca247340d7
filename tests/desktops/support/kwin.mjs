import { copyFile } from 'node:fs/promises';
import { existsSync } from 'node:fs';
import path from 'node:path';
import { startCompositor } from './compositor.mjs';

const socket = 'wayland-kwin';

// It draws without a graphics card, and answers whoever asks.
const compositorVariables = {
  KWIN_WAYLAND_NO_PERMISSION_CHECKS: '1',
  KWIN_COMPOSE: 'O2',
  LIBGL_ALWAYS_SOFTWARE: '1',
};

async function startProgram(desktop) {
  // The program has a file capability, for which containers refuse to run
  // it; a copy has none.
  const program = path.join(desktop.pipeWire.root, 'kwin_wayland');
  await copyFile('/usr/bin/kwin_wayland', program);
  const compositor = await desktop.startProgram(program,
    ['--virtual', '--width', '1280', '--height', '720', '--socket', socket,
      '--no-lockscreen', '--no-global-shortcuts'], 'KWin',
    () => existsSync(path.join(desktop.environment.XDG_RUNTIME_DIR, socket)),
    { ...desktop.environment, ...compositorVariables });
  desktop.environment.WAYLAND_DISPLAY = socket;
  return compositor;
}

/**
 * Starts KDE's compositor with an output that exists in memory alone, a session
 * bus and PipeWire. Its streams of whole outputs stay empty there, those of
 * windows do not; `size` is that of a window.
 */
export async function startKwin({ width = 320, height = 180 } = {}) {
  const desktop = await startCompositor(
    { name: 'KDE', size: { width, height }, caster: 'kwin_cast' },
    startProgram);
  const { startCast, startWindow } = desktop;
  return Object.assign(desktop, {
    startWindow: (options) => startWindow({ ...desktop.size, ...options }),
    /** The stream of a window; see programs/kwin_cast.cc. */
    startCast: ({ title = 'numbered pictures', cursor = 'hidden' } = {}) =>
      startCast([title, cursor]),
  });
}
