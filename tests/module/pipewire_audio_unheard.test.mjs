import assert from 'node:assert/strict';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { portalRequest, withAudio } from '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { until } from '../support/until.mjs';

// A file of its own, because a registered callback cannot be taken back.
const session = usePipeWire({ withSink: true });

test('without a callback sound is counted and nothing is queued', async () => {
  const screen = await startVideo(session, { width: 160, height: 90 });
  const holder = await startHolder(session);
  const tone = await startPlayer(session, { name: 'tone', hertz: 440 });
  try {
    addon.captureSetup(withAudio(portalRequest({
      fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
      node: screen.node,
      width: 160,
      height: 90,
    }), 'process', [tone.serial]));
    await until(() => addon.getStats().audioNonZeroSamplesCaptured > 10_000,
      'sound');
    const stats = addon.getStats();
    assert.ok(stats.audioPacketsCaptured > 0);
    assert.equal(stats.audioBridgeQueuedPackets, 0);
    assert.equal(stats.audioBridgeDroppedPackets, 0);
  } finally {
    addon.stopCapture();
    for (const helper of [tone, holder, screen]) await helper.stop();
  }
});
