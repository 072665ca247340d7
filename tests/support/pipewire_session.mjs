import { after, before } from 'node:test';
import { addon } from './addon.mjs';
import { addSink, startPipeWire } from './pipewire.mjs';

/**
 * Gives the calling test file a PipeWire session of its own, with a sink if it
 * plays sound. A capture finds the daemon by the environment, so this process
 * takes the session's over. The fields of the returned object are filled
 * before the first test runs. `prepare` starts what all tests use, with the
 * session, and returns the helpers to stop at the end.
 */
export function usePipeWire({ withSink = false, prepare } = {}) {
  const session = {};
  let helpers = [];
  before(async () => {
    Object.assign(session, await startPipeWire());
    for (const name of Object.keys(process.env)) {
      if (!Object.hasOwn(session.environment, name)) delete process.env[name];
    }
    Object.assign(process.env, session.environment);
    if (withSink) session.sink = await addSink(session);
    helpers = await prepare?.(session) ?? [];
  });
  after(async () => {
    addon.stopCapture();
    for (const helper of helpers) await helper.stop();
    await session.stop?.();
  });
  return session;
}
