import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { startCommand } from './command.mjs';
import { usePipeWire } from './pipewire_session.mjs';
import { startVideo } from './pipewire_sources.mjs';
import { startFakePortal } from './portal_program.mjs';
import { startSessionBus } from './session_bus.mjs';
import { until } from './until.mjs';
import { readObjects } from './pipewire_objects.mjs';

const size = Object.freeze({ width: 160, height: 90 });

/**
 * Gives the calling test file a desktop of its own that a portal shares: it
 * flashes and clicks at the same instant once a second.
 */
export function useFlashingDesktop() {
  const desktop = {};
  const session = usePipeWire({
    withSink: true,
    async prepare(started) {
      const bus = await startSessionBus();
      process.env.DBUS_SESSION_BUS_ADDRESS = bus.address;
      const screen = await startVideo(started, { ...size, clickEvery: 1 });
      await until(async () =>
        (await readObjects(started)).nodeNamed('screen-click'), 'the clicker');
      const portal = await startFakePortal(bus.address, [
        '--remote', started.socket,
        '--streams', `[(uint32 ${screen.node.id}, {'size': ` +
          `<(${size.width}, ${size.height})>, 'source_type': <uint32 1>})]`,
      ]);
      desktop.folder =
        await mkdtemp(path.join(tmpdir(), 'linux-capture-test-'));
      const removeFolder = () =>
        rm(desktop.folder, { recursive: true, force: true });
      return [portal, screen, bus, { stop: removeFolder }];
    },
  });
  desktop.session = session;
  /** Starts recording it; returns the command and the file. */
  desktop.record = (name, args = [], { hasSound = true, prefix } = {}) => {
    const file = path.join(desktop.folder, name);
    const command = startCommand(['record', file, '--portal',
      ...hasSound ? ['--system-audio'] : [], ...args], {}, { prefix });
    return { file, command };
  };
  return desktop;
}
