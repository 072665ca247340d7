import { execFileSync } from 'node:child_process';
import { isAtLeast } from '../../scripts/build.mjs';

/** The version of the installed PipeWire, for instance "0.3.65". */
export const pipeWireVersion = /^Linked with libpipewire ([\d.]+)$/m.exec(
  execFileSync('pw-cli', ['--version'], { encoding: 'utf8' }))[1];

export const isPipeWireAtLeast = (minimum) =>
  isAtLeast(pipeWireVersion, minimum);
