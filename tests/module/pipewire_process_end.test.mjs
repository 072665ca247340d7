import assert from 'node:assert/strict';
import { test } from 'node:test';
import { startNode } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startPlayer } from '../support/pipewire_sources.mjs';

let tone;
usePipeWire({
  withSink: true,
  async prepare(session) {
    tone = await startPlayer(session, { name: 'tone', hertz: 440 });
    return [tone];
  },
});
const context = useDisplay({ width: 320, height: 180, scene: { fps: 30 } });

// PipeWire comes in after the capture has arranged to be stopped at the end of
// the process, so what belongs to it would be gone by then.
test('a process may end while it captures the screen and sound', async () => {
  const host = startNode(`
    const { packets, audio } = collect();
    addon.captureSetup(withProcessAudio(
      monitorRequest({ sourceWidth: 320, sourceHeight: 180 }),
      [${tone.serial}]));
    await until(() => packets.length > 0 && audio.length > 0, 'packets');
    process.exit(7);
  `, {
    display: context.display,
    // What is freed is overwritten, so that its use does not go unnoticed.
    environment: { MALLOC_PERTURB_: '165' },
  });
  const { code, signal, stderr } = await host.end(60_000);
  assert.deepEqual({ code, signal }, { code: 7, signal: null }, stderr);
});
