import { spawnSync } from 'node:child_process';
import { existsSync } from 'node:fs';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

import { findCommand } from '../scripts/packages.mjs';
import { startScene } from '../tests/support/scene.mjs';
import { startXvfb } from '../tests/support/xvfb.mjs';

const ownScreen = { width: 1280, height: 720 };
const sceneFps = 60;

function requireCommand(name, debianPackage) {
  if (findCommand(name) === null) {
    throw new Error(
      `${name} is needed and not installed (Debian package ${debianPackage})`,
    );
  }
}

function sizeOfDisplay(display) {
  requireCommand('xdpyinfo', 'x11-utils');
  const run = spawnSync('xdpyinfo', ['-display', display], {
    encoding: 'utf8',
    timeout: 10_000,
  });
  const match = /dimensions:\s+(\d+)x(\d+) pixels/.exec(run.stdout ?? '');
  if (run.status !== 0 || match === null) {
    throw new Error(
      `the X display ${display} cannot be reached; correct DISPLAY, or unset ` +
        'it and the demo shows a scene on a screen of its own',
    );
  }
  return { width: Number(match[1]), height: Number(match[2]) };
}

async function startOwnScreen() {
  requireCommand('Xvfb', 'xvfb');
  const program = new URL('../build/release/scene', import.meta.url);
  if (!existsSync(fileURLToPath(program))) {
    throw new Error('the scene program is missing; start with "npm run demo"');
  }
  const server = await startXvfb(ownScreen);
  try {
    const { display } = server;
    const scene = await startScene({ display, ...ownScreen, fps: sceneFps });
    return {
      display,
      ...ownScreen,
      description:
        'no DISPLAY is set: capturing a moving scene on a virtual screen ' +
        `(Xvfb ${display}, ${ownScreen.width}x${ownScreen.height})`,
      stop: async () => {
        await scene.stop();
        await server.stop();
      },
    };
  } catch (error) {
    await server.stop();
    throw error;
  }
}

/** The user's screen where there is one, else one of the demo's own. */
export async function openScreen() {
  const display = process.env.DISPLAY;
  if (!display) {
    return startOwnScreen();
  }
  const size = sizeOfDisplay(display);
  const isWayland = process.env.XDG_SESSION_TYPE === 'wayland';
  return {
    display,
    ...size,
    description:
      `capturing the screen ${display}, ${size.width}x${size.height}` +
      (isWayland
        ? '\nthis is a Wayland session: only windows of X11 programs are seen'
        : ''),
    stop: async () => {},
  };
}
