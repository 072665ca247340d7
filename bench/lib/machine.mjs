import { execFileSync } from 'node:child_process';
import { availableParallelism, cpus, loadavg, release } from 'node:os';
import process from 'node:process';

import { pkgConfig } from '../../scripts/packages.mjs';

const firstLine = (command, ...args) =>
  execFileSync(command, args, { encoding: 'utf8' }).split('\n')[0];

/** What the figures depend on, as lines to print. */
export function describeMachine() {
  const ffmpeg = /version (\S+)/.exec(firstLine('ffmpeg', '-version'))[1];
  return [
    `${new Date().toISOString().slice(0, 16).replace('T', ' ')} UTC, ` +
      `${cpus()[0].model}, ${availableParallelism()} processors, ` +
      `Linux ${release()}`,
    `Node.js ${process.versions.node}, ` +
      `GStreamer ${pkgConfig('--modversion', 'gstreamer-1.0')}, ` +
      `OpenH264 ${pkgConfig('--modversion', 'openh264')}, ffmpeg ${ffmpeg}`,
    `load of the machine before: ${loadavg()[0].toFixed(2)}`,
  ];
}
