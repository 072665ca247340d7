import { readdirSync } from 'node:fs';
import path from 'node:path';
import { built } from '../../support/built.mjs';
import { startPipeWire } from '../../support/pipewire.mjs';
import { runTool } from '../../support/pipewire_objects.mjs';
import { collectText, endHelper, hasEnded, startHelper, waitForText } from
  '../../support/processes.mjs';
import { startSessionBus } from '../../support/session_bus.mjs';
import { until } from '../../support/until.mjs';
import { startWindow } from './window.mjs';

/** What Mutter calls the first monitor that it is started with. */
export const monitorName = 'Meta-0';

const sessionVariables = ['WAYLAND_DISPLAY', 'DISPLAY'];

async function hasName(desktop, name) {
  return /true/.test(await runTool(desktop, 'dbus-send', [
    '--session', '--print-reply', '--dest=org.freedesktop.DBus',
    '/org/freedesktop/DBus', 'org.freedesktop.DBus.NameHasOwner',
    `string:${name}`]));
}

/**
 * Starts GNOME's compositor with a monitor that exists in memory alone, a
 * session bus and PipeWire. It needs no graphics card and no login daemon, and
 * runs as root too.
 */
export async function startMutter({ width = 640, height = 360 } = {}) {
  const running = [];
  const desktop = { size: { width, height } };
  desktop.stop = async () => {
    for (const stop of running.splice(0).reverse()) await stop();
  };

  /** A program of the desktop; `isReady` tells when it can be used. */
  desktop.startProgram = async (command, args, what, isReady,
    environment = {}) => {
    const child = startHelper('setpriv',
      ['--pdeathsig', 'KILL', command, ...args], {
        ...desktop.options,
        env: { ...desktop.environment, ...environment },
        stdio: ['ignore', 'ignore', 'pipe'],
      });
    running.push(() => endHelper(child));
    const errors = collectText(child.stderr);
    await until(() => {
      if (hasEnded(child)) throw new Error(`${what} ended: ${errors.text}`);
      return isReady();
    }, what, 30_000).catch((error) => {
      throw new Error(`${error.message}\n${errors.text}`);
    });
    return { child, errors, kill: () => endHelper(child, 'SIGKILL') };
  };
  desktop.hasName = (name) => hasName(desktop, name);

  try {
    desktop.pipeWire = await startPipeWire();
    running.push(desktop.pipeWire.stop);
    const bus = await startSessionBus();
    running.push(bus.stop);
    desktop.environment = {
      ...desktop.pipeWire.environment,
      DBUS_SESSION_BUS_ADDRESS: bus.address,
      XDG_CURRENT_DESKTOP: 'GNOME',
    };
    for (const name of sessionVariables) delete desktop.environment[name];
    desktop.options = { ...desktop.pipeWire.options,
      env: desktop.environment };
    desktop.compositor = await desktop.startProgram('mutter',
      ['--headless', '--wayland', '--no-x11',
        '--virtual-monitor', `${width}x${height}`],
      'the compositor', () => hasName(desktop, 'org.gnome.Mutter.ScreenCast'),
      // As a member of a session of GNOME it would wait for its manager.
      { XDG_CURRENT_DESKTOP: '' });
    const runtime = desktop.environment.XDG_RUNTIME_DIR;
    desktop.environment.WAYLAND_DISPLAY = path.basename(readdirSync(runtime)
      .find((name) => /^wayland-\d+$/.test(name)));

    /** A window of numbered pictures; see programs/wayland_window.cc. */
    desktop.startWindow = async (options) => {
      const window = await startWindow(desktop, options);
      running.push(window.stop);
      return window;
    };
    /** A stream that the compositor grants; see programs/mutter_cast.cc. */
    desktop.startCast = async (args) => {
      const child = startHelper(built('mutter_cast'), args,
        { ...desktop.options, stdio: ['pipe', 'pipe', 'pipe'] });
      child.stdin.on('error', () => {});
      running.push(() => endHelper(child));
      const output = collectText(child.stdout);
      const errors = collectText(child.stderr);
      const [, node] = await waitForText(child, output, /^node (\d+)$/m,
        'the stream is there').catch((error) => {
        throw new Error(`${error.message}${errors.text}`);
      });
      return {
        node: { id: Number(node) },
        output,
        command: (line) => child.stdin.write(`${line}\n`),
        stop: () => endHelper(child),
      };
    };
  } catch (error) {
    await desktop.stop();
    throw error;
  }
  return desktop;
}
