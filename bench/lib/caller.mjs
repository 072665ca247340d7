// Measures the module's calls from JavaScript and sends the figures to the
// process that started this one.
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import process from 'node:process';
import { setTimeout as sleep } from 'node:timers/promises';

import { until } from '../../tests/support/until.mjs';

const addon = createRequire(import.meta.url)('../../index.js');

const starts = 10;
const statsBatches = 10;
const statsPerBatch = 1000;

/** A picture so small and fast that the delivery shows beside the encoding. */
function request({ size, fps }) {
  return {
    source: {
      backend: 'x11', kind: 'monitor', handle: null,
      geometry: { x: 0, y: 0, ...size },
    },
    capture: {
      ...size, fps, bitrate: 2e6, minBitrate: 1e5, maxBitrate: 4e6,
      temporalLayerCount: 1, gopSize: 60, bFrames: 0, enableCABAC: false,
      lowLatencyMode: true, encoderRequirement: 'allow-degraded',
      topology: { mode: 'direct', branches: [] },
    },
    audio: { mode: 'none' },
  };
}

const small = { size: { width: 64, height: 64 }, fps: 1000 };
const usual = { size: { width: 1280, height: 720 }, fps: 30 };

const received = { packets: 0, firstAt: 0, bytes: 0, readyAt: 0 };
addon.onFragmentReady(({ payload }) => {
  received.firstAt ||= performance.now();
  received.packets += 1;
  received.bytes += payload.length;
});
addon.onCaptureLifecycle(({ state }) => {
  if (state === 'ready') received.readyAt = performance.now();
});

// The main thread's own time: the encoders run on others.
function javaScriptUs() {
  const file = `/proc/self/task/${process.pid}/schedstat`;
  return Number(readFileSync(file, 'utf8').split(' ')[0]) / 1000;
}

async function measureStarts() {
  const figures = { setup: [], ready: [], first: [], stop: [] };
  for (let i = 0; i < starts; i += 1) {
    received.firstAt = 0;
    received.readyAt = 0;
    const begin = performance.now();
    addon.captureSetup(request(usual));
    figures.setup.push(performance.now() - begin);
    await until(() => received.firstAt > 0, 'a packet');
    figures.ready.push(received.readyAt - begin);
    figures.first.push(received.firstAt - begin);
    const stopBegin = performance.now();
    addon.stopCapture();
    figures.stop.push(performance.now() - stopBegin);
  }
  return figures;
}

function measureStats() {
  return Array.from({ length: statsBatches }, () => {
    const begin = performance.now();
    for (let i = 0; i < statsPerBatch; i += 1) addon.getStats();
    return ((performance.now() - begin) * 1000) / statsPerBatch;
  });
}

// An idle main thread wakes for the timer alone, which is next to nothing.
async function measureDelivery(seconds) {
  const costs = [];
  const rates = [];
  addon.captureSetup(request(small));
  await until(() => received.packets > 0, 'a packet');
  for (let i = 0; i < 5; i += 1) {
    const before = { packets: received.packets, us: javaScriptUs() };
    await sleep((seconds * 1000) / 5);
    const packets = received.packets - before.packets;
    costs.push((javaScriptUs() - before.us) / packets);
    rates.push((packets * 5) / seconds);
  }
  const stats = measureStats();
  addon.stopCapture();
  return { costs, rates, stats };
}

async function measure({ seconds }) {
  const startFigures = await measureStarts();
  received.packets = 0;
  const { costs, rates, stats } = await measureDelivery(seconds);
  return {
    'captureSetup until it returns, ms': startFigures.setup,
    'captureSetup until "ready", ms': startFigures.ready,
    'captureSetup until the first packet, ms': startFigures.first,
    'stopCapture, ms': startFigures.stop,
    'getStats, us': stats,
    'JavaScript thread for a delivered packet, us': costs,
    'packets in a second while that was measured': rates,
  };
}

process.once('disconnect', () => process.exit(1));
try {
  process.send(await measure(JSON.parse(process.argv[2])));
} catch (error) {
  process.send({ error: error.message });
}
