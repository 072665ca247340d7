import { addon } from '../../support/addon.mjs';
import { portalRequest } from '../../support/pipewire_requests.mjs';
import { startHolder } from '../../support/pipewire_sources.mjs';

/**
 * Takes the environment of a desktop over, as a program on it has it: the
 * module looks for the PipeWire daemon there.
 */
export function enterDesktop({ environment }) {
  for (const name of Object.keys(process.env)) {
    if (!Object.hasOwn(environment, name)) delete process.env[name];
  }
  Object.assign(process.env, environment);
}

/** Runs `use` with the request of a capture of a stream of a desktop. */
export async function withRequest(desktop, node, capture, use) {
  const holder = await startHolder(desktop.pipeWire);
  try {
    return await use(portalRequest({
      fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
      node,
      ...desktop.size,
      fps: 30,
      ...capture,
    }));
  } finally {
    addon.stopCapture();
    await holder.stop();
  }
}
