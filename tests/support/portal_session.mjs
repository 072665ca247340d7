import { usePipeWire } from './pipewire_session.mjs';
import { startVideo } from './pipewire_sources.mjs';
import { startFakePortal } from './portal_program.mjs';
import { startSessionBus } from './session_bus.mjs';

/**
 * Gives the calling test file a PipeWire session with a session bus, and a
 * screen of this size, which is `screen` of the returned object.
 */
export function usePortal({ width = 160, height = 90 } = {}) {
  let bus;
  const session = usePipeWire({
    async prepare(started) {
      bus = await startSessionBus();
      process.env.DBUS_SESSION_BUS_ADDRESS = bus.address;
      session.screen = await startVideo(started, { width, height, fps: 10 });
      return [session.screen, bus];
    },
  });

  /**
   * Runs `use` while a portal answers with the screen, or with another node,
   * hands out this token, and behaves as told.
   */
  session.withPortal = async (
    { node = session.screen.node.id, token, behaviour = [] }, use) => {
    const portal = await startFakePortal(bus.address, [
      '--remote', session.socket,
      '--streams', `[(uint32 ${node}, {'size': <(${width}, ${height})>, ` +
        "'source_type': <uint32 1>})]",
      ...token === undefined ? [] : ['--restore-token', token],
      ...behaviour,
    ]);
    try {
      return await use(portal);
    } finally {
      await portal.stop();
    }
  };
  return session;
}
