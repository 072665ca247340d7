import { built } from '../../support/built.mjs';
import { startPipeWire } from '../../support/pipewire.mjs';
import { collectText, endHelper, hasEnded, startHelper, waitForText } from
  '../../support/processes.mjs';
import { startSessionBus } from '../../support/session_bus.mjs';
import { until } from '../../support/until.mjs';
import { startWindow } from './window.mjs';

/**
 * What the desktops of all compositors have: PipeWire, a session bus, and what
 * is started on them. `start` starts the compositor itself, with the desktop;
 * `caster` is the program that asks it for streams.
 */
export async function startCompositor({ name, size, caster }, start) {
  const running = [];
  const desktop = { size };
  desktop.stop = async () => {
    for (const stop of running.splice(0).reverse()) await stop();
  };

  /** A program of the desktop; `isReady` tells when it can be used. */
  desktop.startProgram = async (command, args, what, isReady,
    environment = desktop.environment) => {
    const child = startHelper('setpriv',
      ['--pdeathsig', 'KILL', command, ...args], {
        ...desktop.options,
        env: environment,
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
  /** A window of numbered pictures; see programs/wayland_window.cc. */
  desktop.startWindow = async (options) => {
    const window = await startWindow(desktop, options);
    running.push(window.stop);
    return window;
  };
  /** A stream that the compositor grants; `args` are the caster's. */
  desktop.startCast = async (args) => {
    const child = startHelper(built(caster), args,
      { ...desktop.options, stdio: ['pipe', 'pipe', 'pipe'] });
    child.stdin.on('error', () => {});
    running.push(() => endHelper(child));
    const output = collectText(child.stdout);
    const errors = collectText(child.stderr);
    const [, node] = await waitForText(child, output, /^node (\d+)$/m,
      'the stream is there', 20_000).catch((error) => {
      throw new Error(`${error.message}${errors.text}`);
    });
    return {
      node: { id: Number(node) },
      output,
      command: (line) => child.stdin.write(`${line}\n`),
      stop: () => endHelper(child),
    };
  };

  try {
    desktop.pipeWire = await startPipeWire();
    running.push(desktop.pipeWire.stop);
    const bus = await startSessionBus();
    running.push(bus.stop);
    const { WAYLAND_DISPLAY: _, DISPLAY: __, ...environment } =
      desktop.pipeWire.environment;
    desktop.environment = {
      ...environment,
      DBUS_SESSION_BUS_ADDRESS: bus.address,
      XDG_CURRENT_DESKTOP: name,
    };
    desktop.options = { ...desktop.pipeWire.options,
      env: desktop.environment };
    desktop.compositor = await start(desktop);
  } catch (error) {
    await desktop.stop();
    throw error;
  }
  return desktop;
}
