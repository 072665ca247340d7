import assert from 'node:assert/strict';
import { existsSync, readFileSync, statSync } from 'node:fs';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { stagesOf } from '../support/child.mjs';
import { portalRequest, withAudio } from '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { isPipeWireAtLeast } from '../support/pipewire_version.mjs';
import { until } from '../support/until.mjs';

const logFile = '/tmp/linux-capture-debug.log';
const size = { width: 160, height: 90 };
let screen;
let holder;
let tone;
usePipeWire({
  withSink: true,
  async prepare(session) {
    screen = await startVideo(session, size);
    holder = await startHolder(session);
    tone = await startPlayer(session, { name: 'tone', hertz: 440 });
    return [screen, holder, tone];
  },
});

test('on-disconnect is left out before PipeWire 1.6, and only then',
  async () => {
    const from = existsSync(logFile) ? statSync(logFile).size : 0;
    const collected = collect();
    addon.captureSetup(withAudio(portalRequest({
      fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
      node: screen.node,
      ...size,
    }), 'process', [tone.serial]));
    await until(() => collected.packets.length > 10 &&
      collected.audio.length > 10, 'pictures and sound');
    addon.stopCapture();
    const written = readFileSync(logFile).subarray(from).toString('utf8');
    const omitted = stagesOf(written, process.pid)
      .filter((stage) => /omitted/.test(stage));
    const line = 'launch:omitted-pipewiresrc-properties=on-disconnect';
    // One line for the pictures and one for the sound.
    assert.deepEqual(omitted, isPipeWireAtLeast('1.6') ? [] : [line, line]);
  });
