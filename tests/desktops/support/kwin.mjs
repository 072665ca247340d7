import { copyFile } from 'node:fs/promises';
import { existsSync } from 'node:fs';
import path from 'node:path';
import { built } from '../../support/built.mjs';
import { startPipeWire } from '../../support/pipewire.mjs';
import { collectText, endHelper, hasEnded, startHelper, waitForText } from
  '../../support/processes.mjs';
import { startSessionBus } from '../../support/session_bus.mjs';
import { until } from '../../support/until.mjs';
import { startWindow } from './window.mjs';

const socket = 'wayland-kwin';

// It draws without a graphics card, and answers whoever asks.
const compositorVariables = {
  KWIN_WAYLAND_NO_PERMISSION_CHECKS: '1',
  KWIN_COMPOSE: 'O2',
  LIBGL_ALWAYS_SOFTWARE: '1',
};

/**
 * Starts KDE's compositor with an output that exists in memory alone, a session
 * bus and PipeWire. Its streams of whole outputs stay empty there, those of
 * windows do not; `size` is that of a window.
 */
export async function startKwin({ width = 320, height = 180 } = {}) {
  const running = [];
  const desktop = { size: { width, height } };
  desktop.stop = async () => {
    for (const stop of running.splice(0).reverse()) await stop();
  };
  try {
    desktop.pipeWire = await startPipeWire();
    running.push(desktop.pipeWire.stop);
    const bus = await startSessionBus();
    running.push(bus.stop);
    desktop.environment = {
      ...desktop.pipeWire.environment,
      DBUS_SESSION_BUS_ADDRESS: bus.address,
      XDG_CURRENT_DESKTOP: 'KDE',
      WAYLAND_DISPLAY: socket,
    };
    desktop.options = { ...desktop.pipeWire.options,
      env: desktop.environment };

    // The program has a file capability, for which containers refuse to run
    // it; a copy has none.
    const program = path.join(desktop.pipeWire.root, 'kwin_wayland');
    await copyFile('/usr/bin/kwin_wayland', program);
    const { WAYLAND_DISPLAY: _, ...ofCompositor } = desktop.environment;
    const child = startHelper('setpriv', ['--pdeathsig', 'KILL', program,
      '--virtual', '--width', '1280', '--height', '720', '--socket', socket,
      '--no-lockscreen', '--no-global-shortcuts'], {
      ...desktop.options,
      env: { ...ofCompositor, ...compositorVariables },
      stdio: ['ignore', 'ignore', 'pipe'],
    });
    running.push(() => endHelper(child));
    const errors = collectText(child.stderr);
    await until(() => {
      if (hasEnded(child)) throw new Error(`KWin ended: ${errors.text}`);
      return existsSync(
        path.join(desktop.environment.XDG_RUNTIME_DIR, socket));
    }, 'KWin', 30_000);
    desktop.compositor = { child, errors,
      kill: () => endHelper(child, 'SIGKILL') };

    /** A window of numbered pictures; see programs/wayland_window.cc. */
    desktop.startWindow = async (options) => {
      const window = await startWindow(desktop,
        { ...desktop.size, ...options });
      running.push(window.stop);
      return window;
    };
    /** The stream of a window; see programs/kwin_cast.cc. */
    desktop.startCast = async ({ title = 'numbered pictures',
      cursor = 'hidden' } = {}) => {
      const caster = startHelper(built('kwin_cast'), [title, cursor],
        { ...desktop.options, stdio: ['pipe', 'pipe', 'pipe'] });
      caster.stdin.on('error', () => {});
      running.push(() => endHelper(caster));
      const output = collectText(caster.stdout);
      const casterErrors = collectText(caster.stderr);
      const [, node] = await waitForText(caster, output, /^node (\d+)$/m,
        'the stream is there', 20_000).catch((error) => {
        throw new Error(`${error.message}${casterErrors.text}`);
      });
      return {
        node: { id: Number(node) },
        output,
        command: (line) => caster.stdin.write(`${line}\n`),
        stop: () => endHelper(caster),
      };
    };
  } catch (error) {
    await desktop.stop();
    throw error;
  }
  return desktop;
}
