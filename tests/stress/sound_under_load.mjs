// Records one tone by a capture with pictures and by pw-record beside it, and
// tells how often and for how long each of them has damaged it. Where the player
// is late, the capture has silence for as long, which is the truth, and pw-record
// nothing at all: its file is shorter than the time was. Where PipeWire could not
// hand over what the player had, both have silence. So what can be compared is
// how much of the time is without the tone: silent here, silent or missing there.
//
//   node tests/stress/sound_under_load.mjs [--seconds N] [--busy N]
//
// --busy starts so many processes that only compute.
import { readFileSync, statSync } from 'node:fs';
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

/** How long two channels of samples are silent, leaving out what may be tone. */
function silentMs(pieces) {
  const shortest = 48;
  let silent = 0;
  let run = 0;
  const endRun = () => {
    if (run >= shortest) silent += run;
    run = 0;
  };
  for (const samples of pieces) {
    for (let i = 0; i < samples.length; i += 2) {
      if (samples[i] === 0) run += 1;
      else endRun();
    }
  }
  endRun();
  return silent / 48;
}

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
  await sleep(2000);
  const begin = { ms: performance.now(), packets: audio.length,
    bytes: statSync(file).size };
  await sleep(seconds * 1000);
  const end = { ms: performance.now(), packets: audio.length,
    bytes: statSync(file).size };
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
  const bytesPerMs = 192;
  const missing =
    end.ms - begin.ms - (end.bytes - begin.bytes) / bytesPerMs;
  const silent = silentMs(audio.slice(begin.packets, end.packets)
    .map(({ samples }) => samples));
  const silentBeside = silentMs([
    recorded.subarray((begin.bytes - 44) >> 1, (end.bytes - 44) >> 1)]);
  console.log(`without the tone: module ${silent.toFixed(0)} ms, pw-record ` +
    `${(missing + silentBeside).toFixed(0)} ms (${
      silentBeside.toFixed(0)} of them silent) of ${seconds} s`);
}

try {
  await record();
} finally {
  addon.stopCapture();
  for (const stop of stops) await stop();
}
process.exit();
