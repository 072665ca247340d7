import { chown, copyFile, mkdir, writeFile } from 'node:fs/promises';
import { existsSync, readdirSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { built } from './built.mjs';
import { runTool } from './pipewire_objects.mjs';
import { startPipeWire } from './pipewire.mjs';
import { collectText, endHelper, hasEnded, startHelper } from
  './processes.mjs';
import { startPortalProgram } from './portal_program.mjs';
import { startSessionBus } from './session_bus.mjs';
import { until } from './until.mjs';

const support = (name) => fileURLToPath(new URL(name, import.meta.url));

const output = 'HEADLESS-1';

/** Whom a desktop belongs to: a compositor refuses to run as root. */
const nobody = Object.freeze({ uid: 65_534, gid: 65_534 });
const userOfDesktop = () => process.getuid() === 0 ? nobody : undefined;

const swayConfiguration = ({ width, height }) => `
xwayland disable
output ${output} resolution ${width}x${height} position 0 0
default_border none
default_floating_border none
`;

const backendConfiguration = `[screencast]
chooser_type=none
output_name=${output}
max_fps=30
`;

/** Files that the desktop's user may read, wherever the repository is. */
async function placeFiles({ root, user, size }) {
  const folder = path.join(root, 'desktop');
  await mkdir(folder);
  const files = {
    sway: path.join(folder, 'sway.conf'),
    backend: path.join(folder, 'portal-wlr.conf'),
    preload: path.join(folder, 'screencopy_preload.so'),
    program: path.join(folder, 'linux-capture-portal'),
  };
  await writeFile(files.sway, swayConfiguration(size));
  await writeFile(files.backend, backendConfiguration);
  await copyFile(built('screencopy_preload.so'), files.preload);
  await copyFile(built('linux-capture-portal'), files.program);
  if (user !== undefined) {
    for (const file of [folder, ...Object.values(files)]) {
      await chown(file, user.uid, user.gid);
    }
  }
  return files;
}

/** The services of a portal stand where the distribution puts them. */
function serviceProgram(name) {
  const found = ['/usr/libexec', '/usr/lib', '/usr/lib/xdg-desktop-portal']
    .map((folder) => path.join(folder, name))
    .find((file) => existsSync(file));
  if (found === undefined) throw new Error(`${name} is not installed`);
  return found;
}

/**
 * Starts a desktop of its own: PipeWire, a session bus, a compositor without a
 * screen, the desktop portal and its backend for that compositor. Run by root,
 * all of it belongs to an ordinary user.
 */
export async function startDesktop({ width = 640, height = 360 } = {}) {
  const user = userOfDesktop();
  const size = { width, height };
  const running = [];
  const desktop = { size };
  desktop.stop = async () => {
    for (const stop of running.splice(0).reverse()) await stop();
  };

  const start = async (command, args, environment, isReady, what) => {
    const child = startHelper('setpriv',
      ['--pdeathsig', 'KILL', command, ...args], {
        ...desktop.options,
        env: { ...desktop.environment, ...environment },
        stdio: ['ignore', 'ignore', 'pipe'],
      });
    running.push(() => endHelper(child));
    const errors = collectText(child.stderr);
    await until(async () => {
      if (hasEnded(child)) throw new Error(`${what} ended: ${errors.text}`);
      return isReady();
    }, what, 20_000).catch((error) => {
      throw new Error(`${error.message}\n${errors.text}`);
    });
    return { child, errors, kill: () => endHelper(child, 'SIGKILL') };
  };

  try {
    const pipeWire = await startPipeWire({ user });
    running.push(pipeWire.stop);
    const bus = await startSessionBus({ user });
    running.push(bus.stop);
    desktop.pipeWire = pipeWire;
    desktop.options = pipeWire.options;
    desktop.environment = {
      ...pipeWire.environment,
      DBUS_SESSION_BUS_ADDRESS: bus.address,
      XDG_CURRENT_DESKTOP: 'sway',
      WAYLAND_DISPLAY: 'wayland-1',
    };
    const files = await placeFiles({ root: pipeWire.root, user, size });
    const onBus = (name) => async () => /true/.test(
      await runTool({ options: { ...desktop.options,
        env: desktop.environment } }, 'dbus-send', [
        '--session', '--print-reply', '--dest=org.freedesktop.DBus',
        '/org/freedesktop/DBus', 'org.freedesktop.DBus.NameHasOwner',
        `string:${name}`]));

    const runtime = desktop.environment.XDG_RUNTIME_DIR;
    desktop.compositor = await start('sway', ['--config', files.sway], {
      WAYLAND_DISPLAY: undefined,
      WLR_BACKENDS: 'headless',
      WLR_RENDERER: 'pixman',
      WLR_LIBINPUT_NO_DEVICES: '1',
    }, () => existsSync(path.join(runtime, 'wayland-1')), 'the compositor');
    desktop.backend = await start(serviceProgram('xdg-desktop-portal-wlr'),
      ['--config', files.backend], { LD_PRELOAD: files.preload },
      onBus('org.freedesktop.impl.portal.desktop.wlr'),
      'the backend of the portal');
    // Choices that are kept are kept there.
    await start(serviceProgram('xdg-permission-store'), [], {},
      onBus('org.freedesktop.impl.portal.PermissionStore'),
      'the permission store');
    desktop.portal = await start(serviceProgram('xdg-desktop-portal'), [], {},
      onBus('org.freedesktop.portal.Desktop'), 'the desktop portal');

    const windows = () => runTool(desktop, 'swaymsg', ['--raw', '--socket',
      path.join(runtime, readdirSync(runtime)
        .find((name) => name.startsWith('sway-ipc.'))), '-t', 'get_tree']);

    /** Asks the portal for a stream, with what a host would start. */
    desktop.startPortalProgram = (args = [], token = undefined) => {
      const program = startPortalProgram(args,
        { ...desktop.options, env: desktop.environment,
          command: files.program, token });
      running.push(program.stop);
      return program;
    };
    /** Shows the numbered pictures, tiled and so on the whole screen. */
    desktop.startPictures = async () => {
      const painter = startHelper(process.execPath,
        [support('painter.mjs'), String(width), String(height)],
        { stdio: ['ignore', 'pipe', 'inherit'] });
      running.push(() => endHelper(painter));
      const window = startHelper('gst-launch-1.0', ['--quiet',
        'fdsrc', 'fd=0', '!', 'rawvideoparse', 'format=bgrx',
        `width=${width}`, `height=${height}`, 'framerate=30/1', '!',
        'waylandsink', 'sync=false'], {
        ...desktop.options, env: desktop.environment,
        stdio: [painter.stdout, 'ignore', 'inherit'],
      });
      // Both ends belong to the two programs now.
      painter.stdout.destroy();
      running.push(() => endHelper(window));
      await until(async () => {
        if (hasEnded(window)) throw new Error('the pictures ended early');
        return (await windows()).includes(`"pid": ${window.pid},`);
      }, 'the pictures on the screen', 20_000);
    };
  } catch (error) {
    await desktop.stop();
    throw error;
  }
  return desktop;
}
