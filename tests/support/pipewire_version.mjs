import { execFileSync } from 'node:child_process';
import { isAtLeast } from '../../scripts/build.mjs';

/** The version of the installed PipeWire, for instance "0.3.65". */
export const pipeWireVersion = /^Linked with libpipewire ([\d.]+)$/m.exec(
  execFileSync('pw-cli', ['--version'], { encoding: 'utf8' }))[1];

export const isPipeWireAtLeast = (minimum) =>
  isAtLeast(pipeWireVersion, minimum);

/**
 * Whether its source takes a new format of a producer's pictures: 0.3 goes on
 * with the old one, 1.2 and 1.4 end the stream.
 */
export const followsFormats = isPipeWireAtLeast('1.6') ||
  isPipeWireAtLeast('1.0') && !isPipeWireAtLeast('1.2');
