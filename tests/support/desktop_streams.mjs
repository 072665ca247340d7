import { closeSync } from 'node:fs';
import { addon } from './addon.mjs';
import { startDesktop } from './desktop.mjs';
import { readObjects } from './pipewire_objects.mjs';
import { smallCapture } from './requests.mjs';

export const size = { width: 640, height: 360 };
export const branches = [
  { branchIndex: 0, ...size, fps: 30, bitrate: 4_000_000 },
  { branchIndex: 1, width: 320, height: 180, fps: 15, bitrate: 1_500_000 },
  { branchIndex: 2, width: 160, height: 90, fps: 7, bitrate: 700_000 },
];

/**
 * Starts a desktop, and takes its environment over as a program on it has it:
 * the module looks for the PipeWire daemon there.
 */
export async function enterDesktop() {
  const desktop = await startDesktop(size);
  for (const name of Object.keys(process.env)) {
    if (!Object.hasOwn(desktop.environment, name)) delete process.env[name];
  }
  Object.assign(process.env, desktop.environment);
  try {
    await desktop.startPictures();
  } catch (error) {
    await desktop.stop();
    throw error;
  }
  return desktop;
}

/** A request made of nothing but what the program printed, and a descriptor. */
export function requestOf(report, fd) {
  const [{ branchIndex, ...primary }, ...secondaries] = branches;
  return {
    source: { backend: 'portal', kind: report.kind },
    portal: { ...report, pipeWireFd: fd },
    capture: {
      ...smallCapture,
      ...primary,
      maxBitrate: 8_000_000,
      topology: { mode: 'topology', branches: secondaries },
    },
    audio: { mode: 'none' },
  };
}

/** Runs `use` with a stream that the portal grants and a copy of its fd. */
export async function withStream(desktop, use, args = [], token = undefined) {
  const program = desktop.startPortalProgram(args, token);
  try {
    const report = await program.report();
    const fd = addon.duplicateFdFromPid(report.pid, report.pipeWireFd);
    try {
      return await use({ program, report, fd });
    } finally {
      closeSync(fd);
    }
  } finally {
    addon.stopCapture();
    await program.stop();
  }
}

export async function hasNode(desktop, { pipeWireNodeId }) {
  const { nodes } = await readObjects(desktop.pipeWire);
  return nodes.some(({ id }) => id === pipeWireNodeId);
}
