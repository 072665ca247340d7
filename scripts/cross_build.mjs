// Builds for 64-bit ARM with the libraries of a root folder of Debian for it.
import { existsSync, readFileSync, rmSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { findCommand } from './packages.mjs';
import { build } from './build.mjs';

const root = fileURLToPath(new URL('..', import.meta.url));
const toolchain = path.join(root, 'scripts/arm64/toolchain.cmake');
const compiler = 'aarch64-linux-gnu-g++';

/** The root folder that a CMakeCache.txt was made with; null without one. */
export const sysrootOf = (cache) =>
  /^LINUX_CAPTURE_SYSROOT:\w+=(.+)$/m.exec(cache)?.[1] ?? null;

/** The name of the folder of `build` that a preset is built in. */
export const crossName = (preset) => `arm64-${preset}`;

const buildFolder = (preset) => path.join(root, 'build', crossName(preset));

/** The root folder that a preset was last built with, or null. */
export function lastSysroot(preset) {
  const file = path.join(buildFolder(preset), 'CMakeCache.txt');
  return existsSync(file) ? sysrootOf(readFileSync(file, 'utf8')) : null;
}

/** Builds targets of a preset for this processor. */
export function crossBuild(targets, { preset, sysroot }) {
  if (findCommand(compiler) === null) {
    throw new Error(`"${compiler}" was not found in PATH`);
  }
  // CMake would go on with what it has found in another root.
  if (lastSysroot(preset) !== sysroot) {
    rmSync(buildFolder(preset), { recursive: true, force: true });
  }
  build(targets, { preset, name: crossName(preset), options: [
    '--toolchain', toolchain, `-DLINUX_CAPTURE_SYSROOT=${sysroot}`] });
}
