// Runs a program of Node.js on the display of its user, or where there is none
// on a virtual screen that shows a moving scene.
//
//   node tests/support/on_screen.mjs FILE [argument...]
import { once } from 'node:events';
import { spawn } from 'node:child_process';
import process from 'node:process';

import { startScene } from './scene.mjs';
import { startXvfb } from './xvfb.mjs';

const screen = { width: 1280, height: 720 };

/** Runs it; resolves with its status. */
async function run(args, display) {
  const child = spawn(process.execPath, args, {
    env: { ...process.env, DISPLAY: display }, stdio: 'inherit',
  });
  // The terminal sends it to both; what the program does of it decides.
  const leaveIt = () => {};
  process.on('SIGINT', leaveIt);
  const [code] = await once(child, 'exit');
  process.off('SIGINT', leaveIt);
  return code ?? 1;
}

async function main(args) {
  if (process.env.DISPLAY) return run(args, process.env.DISPLAY);
  console.log('no DISPLAY is set: a scene moves on a virtual screen');
  const server = await startXvfb(screen);
  try {
    const scene =
      await startScene({ display: server.display, ...screen, fps: 60 });
    try {
      return await run(args, server.display);
    } finally {
      await scene.stop();
    }
  } finally {
    await server.stop();
  }
}

process.exitCode = await main(process.argv.slice(2));
