// Records one tone by a capture with pictures and by pw-record beside it, and
// tells how often and for how long each of them has damaged it. Where the player
// is late, the capture has silence for as long and pw-record nothing at all, so
// that it is the number of times that can be compared.
//
//   node tests/stress/sound_under_load.mjs [--seconds N] [--busy N]
//
// --busy starts so many processes that only compute.
import { readFileSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { setTimeout as sleep } from 'node:timers/promises';
import { parseArgs } from 'node:util';
import { startBenchScene } from '../../bench/lib/scene.mjs';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { addSink, startPipeWire } from '../support/pipewire.mjs';
import { withAudio } from '../support/pipewire_requests.mjs';
import { startPlayer } from '../support/pipewire_sources.mjs';
import { endHelper, startHelper } from '../support/processes.mjs';
import { monitorRequest } from '../support/requests.mjs';
import { damagedTenths } from '../support/tone.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const { values: options } = parseArgs({
  options: {
    seconds: { type: 'string', default: '25' },
    busy: { type: 'string', default: '0' },
  },
});
const seconds = Number(options.seconds);
const size = { width: 1280, height: 720 };
const hertz = 440;

const stops = [];
const started = async (promise, stop = (helper) => helper.stop()) => {
  const helper = await promise;
  stops.unshift(() => stop(helper));
  return helper;
};

async function record() {
  const session = await started(startPipeWire());
  const xvfb = await started(startXvfb(size));
  Object.assign(process.env, session.environment, { DISPLAY: xvfb.display });
  await addSink(session);
  await started(startBenchScene(xvfb.display, { kind: 'moving', hz: 60, size }));
  const player = await started(startPlayer(session,
    { name: 'tone', hertz, seconds: seconds + 30 }));
  const file = path.join(session.root, 'beside.wav');

  const { audio, packets } = collect();
  addon.captureSetup(withAudio(monitorRequest({
    sourceWidth: size.width, sourceHeight: size.height, ...size,
    bitrate: 4_000_000, maxBitrate: 6_000_000,
  }), 'process', [player.serial]));
  const beside = startHelper('pw-record',
    ['--target', String(player.serial), '--format', 's16', '--rate', '48000',
      '--channels', '2', file],
    { ...session.options, stdio: ['ignore', 'ignore', 'inherit'] });
  for (let i = 0; i < Number(options.busy); i += 1) {
    await started(startHelper(process.execPath, ['--eval', 'for (;;);'],
      { stdio: 'ignore' }), (child) => endHelper(child, 'SIGKILL'));
  }
  await sleep(seconds * 1000);
  addon.stopCapture();
  await endHelper(beside, 'SIGINT');

  const captured = Int16Array.from(audio.flatMap(({ samples }) => [...samples]));
  const bytes = readFileSync(file);
  const recorded = new Int16Array(bytes.buffer,
    bytes.byteOffset + 44, (bytes.length - 44) >> 1);
  const text = ({ damaged, times, all }) =>
    `damaged ${times} times, ${damaged} of ${all} tenths of a second`;
  const spanUs = packets.at(-1).timestampUs - packets[0].timestampUs;
  console.log(`module: ${text(damagedTenths(captured, hertz))}; ` +
    `${(packets.length * 1e6 / spanUs).toFixed(1)} pictures a second`);
  console.log(`pw-record: ${text(damagedTenths(recorded, hertz))}`);
}

try {
  await record();
} finally {
  addon.stopCapture();
  for (const stop of stops) await stop();
}
process.exit();
