// Captures a moving screen in three sizes at once and writes one file for each.
import { mkdirSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import process from 'node:process';
import { setTimeout as sleep } from 'node:timers/promises';

import { composeMp4 } from './mp4_file.mjs';
import { readOptions, usage } from './options.mjs';
import { branchTable, progressLine } from './report.mjs';
import { openScreen } from './screen.mjs';

const progressPeriodMs = 250;

function captureRequest({ width, height }) {
  return {
    source: {
      backend: 'x11',
      kind: 'monitor',
      handle: null,
      geometry: { x: 0, y: 0, width, height },
    },
    capture: {
      width: 1280,
      height: 720,
      fps: 30,
      bitrate: 4_000_000,
      minBitrate: 500_000,
      maxBitrate: 6_000_000,
      temporalLayerCount: 3,
      gopSize: 60,
      bFrames: 0,
      enableCABAC: false,
      lowLatencyMode: true,
      encoderRequirement: 'allow-degraded',
      topology: {
        mode: 'topology',
        branches: [
          { width: 640, height: 360, fps: 15, bitrate: 1_000_000 },
          { width: 320, height: 180, fps: 7, bitrate: 300_000 },
        ],
      },
    },
    audio: { mode: 'none' },
  };
}

function showProgress(line, isLast = false) {
  if (process.stdout.isTTY) {
    process.stdout.write(`\r${line}\x1b[K${isLast ? '\n' : ''}`);
  } else {
    console.log(line);
  }
}

async function capture(addon, screen, seconds) {
  const packets = [];
  const failures = [];
  addon.onFragmentReady((packet) => {
    (packets[packet.branchIndex] ??= []).push(packet);
  });
  addon.onCaptureLifecycle(({ state, reason }) => {
    if (state === 'error') {
      failures.push(reason);
    }
  });

  const interrupted = new AbortController();
  const interrupt = () => interrupted.abort();
  process.once('SIGINT', interrupt);
  addon.captureSetup(captureRequest(screen));
  const start = performance.now();
  const elapsed = () => (performance.now() - start) / 1000;
  // A terminal shows one moving line; a log gets a line a second.
  const period = process.stdout.isTTY ? progressPeriodMs : 1000;
  while (elapsed() < seconds && failures.length === 0) {
    const rest = (seconds - elapsed()) * 1000;
    try {
      await sleep(Math.min(period, Math.max(rest, 1)), undefined, {
        signal: interrupted.signal,
      });
    } catch {
      break;
    }
    if (seconds - elapsed() > 0.1) {
      showProgress(progressLine(elapsed(), seconds, packets));
    }
  }
  showProgress(progressLine(elapsed(), seconds, packets), true);
  process.removeListener('SIGINT', interrupt);
  const stats = addon.getStats();
  addon.stopCapture();
  return { packets, stats, failures };
}

function writeFiles(folder, packets) {
  mkdirSync(folder, { recursive: true });
  return packets.map((list, index) => {
    const { width, height } = list[0];
    const file = path.join(folder, `branch-${index}-${width}x${height}.mp4`);
    writeFileSync(file, composeMp4(list));
    return file;
  });
}

async function main() {
  const options = readOptions(process.argv.slice(2));
  if (options.help) {
    console.log(usage);
    return;
  }
  const addon = createRequire(import.meta.url)('..');
  const screen = await openScreen();
  try {
    console.log(screen.description);
    // The X11 source finds the display in the environment.
    process.env.DISPLAY = screen.display;
    const result = await capture(addon, screen, options.seconds);
    if (result.failures.length > 0) {
      throw new Error(`the capture failed: ${result.failures.join('; ')}`);
    }
    const silent = result.stats.branchStats.filter(
      ({ branchIndex }) => !result.packets[branchIndex]);
    if (silent.length > 0 || result.packets.length === 0) {
      throw new Error('a branch delivered no picture');
    }
    console.log(`\nencoder ${result.stats.selectedEncoder}`);
    console.log(branchTable(result.stats.branchStats));
    console.log('\nwritten, to be opened with any video player:');
    for (const file of writeFiles(options.output, result.packets)) {
      console.log(`  ${file}`);
    }
  } finally {
    await screen.stop();
  }
}

try {
  await main();
} catch (error) {
  console.error(`demo: ${error.message}`);
  process.exitCode = 1;
}
// The registered callbacks would keep the process waiting for more.
process.exit();
