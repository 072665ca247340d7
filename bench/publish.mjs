// What it costs to publish a capture, beside the capture alone: the same process
// captures all the time and publishes in every other window. The receiver is no
// part of it.
import { once } from 'node:events';
import { readFileSync, readdirSync } from 'node:fs';
import process from 'node:process';
import { setTimeout as sleep } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

import { addSink, startPipeWire } from '../tests/support/pipewire.mjs';
import { startPlayer } from '../tests/support/pipewire_sources.mjs';
import {
  collectText, endHelper, startHelper,
} from '../tests/support/processes.mjs';
import { startBrowser } from '../tests/support/chromium.mjs';
import { openWhipDoor } from '../tests/support/whip_door.mjs';
import { startXvfb } from '../tests/support/xvfb.mjs';
import { median, quantile } from './lib/figures.mjs';
import { messageFrom } from './lib/messages.mjs';
import { processorSeconds, threadSeconds } from './lib/processor.mjs';
import { startReceiver } from './lib/publish_receiver.mjs';
import { screen, sizeOf } from './lib/scenarios.mjs';
import { openGlass } from './lib/glass_page.mjs';
import { startBenchScene } from './lib/scene.mjs';
import { formatTable, spreadText } from './lib/table.mjs';

const hostProgram =
  fileURLToPath(new URL('lib/publish_host.mjs', import.meta.url));
const stepLimitMs = 30_000;
const settlingMs = 2000;
const mostCost = 0.08;
const mostLatencyMs = 5;

// Scaled, a moving screen takes all the bits that it may.
const size = Object.freeze({ width: 1280, height: 720 });
const captureOptions = Object.freeze({
  source: { type: 'monitor', geometry: { x: 0, y: 0, ...screen } },
  video: { ...size, fps: 30, bitrate: 6_000_000 },
  audio: 'system',
});

/** Starts what is captured: a moving screen, and a tone. */
async function startStage() {
  const pipewire = await startPipeWire();
  const ends = [pipewire];
  const end = async () => {
    for (const each of ends.reverse()) await each.stop();
  };
  try {
    await addSink(pipewire);
    ends.push(await startPlayer(pipewire,
      { name: 'tone', hertz: 440, seconds: 600 }));
    const xvfb = await startXvfb(screen);
    ends.push(xvfb);
    const scene = await startBenchScene(xvfb.display,
      { kind: 'moving', hz: 60 });
    ends.push(scene);
    return { scene, end, environment: {
      ...process.env, ...pipewire.environment, DISPLAY: xvfb.display,
    } };
  } catch (error) {
    await end();
    throw error;
  }
}

/** A process that captures, and does steps when it is told to. */
async function startHost(environment, options) {
  const child = startHelper(process.execPath, [hostProgram],
    { env: environment, stdio: ['ignore', 'ignore', 'pipe', 'ipc'] });
  const errors = collectText(child.stderr);
  const tell = async (step, parameters = {}) => {
    const answer = messageFrom(child, step, stepLimitMs);
    child.send({ step, ...parameters });
    return answer;
  };
  try {
    await tell('start', { options });
  } catch (error) {
    await endHelper(child, 'SIGKILL');
    throw new Error(`${error.message}\n${errors.text.slice(-1000)}`);
  }
  return {
    pid: child.pid,
    tell,
    async stop() {
      await tell('stop');
      child.disconnect();
      if (child.exitCode === null) await once(child, 'exit');
    },
    kill: () => endHelper(child, 'SIGKILL'),
  };
}

/** The programs that a process has started, by their names. */
function programsOf(parent) {
  const found = new Map();
  for (const pid of readdirSync('/proc').filter((name) => /^\d+$/.test(name))) {
    try {
      const stat = readFileSync(`/proc/${pid}/stat`, 'utf8');
      const end = stat.lastIndexOf(')');
      if (Number(stat.slice(end + 2).split(' ')[1]) === parent) {
        found.set(stat.slice(stat.indexOf('(') + 1, end), Number(pid));
      }
    } catch {
      // It has ended since the folder was listed.
    }
  }
  return found;
}

/** Processor seconds a second of each part of the host and its programs. */
async function measureParts(pid, seconds) {
  const programs = programsOf(pid);
  const read = () => {
    const threads = [...threadSeconds(pid)];
    const main = threads.find(([id]) => Number(id) === pid)[1].seconds;
    const of = (name) => [...programs].filter(([found]) => name.test(found))
      .reduce((sum, [, program]) => sum + processorSeconds(program), 0);
    const host = processorSeconds(pid);
    return {
      javaScript: main,
      transport: of(/^linux-capture-t/),
      opus: of(/^linux-capture-o/),
      all: host + of(/^linux-capture-/),
      atNs: process.hrtime.bigint(),
    };
  };
  const before = read();
  await sleep(seconds * 1000);
  const after = read();
  const length = Number(after.atNs - before.atNs) / 1e9;
  return Object.fromEntries(['all', 'javaScript', 'transport', 'opus']
    .map((part) => [part, (after[part] - before[part]) / length]));
}

/** One step of the host, with a receiver of its own where it publishes. */
async function runStep(host, step, measure) {
  if (step === 'alone') {
    await host.tell(step);
    await sleep(settlingMs);
    const parts = await measure();
    await host.tell('endStep');
    return { parts };
  }
  const receiver = startReceiver();
  const door = await openWhipDoor((offer) => receiver.answer(offer));
  try {
    await host.tell(step, { url: door.url });
    const begin = performance.now();
    await sleep(settlingMs);
    const parts = await measure();
    const seconds = (performance.now() - begin) / 1000;
    const { stats } = await host.tell('endStep');
    return { parts, stats, seconds, arrivals: receiver.arrivals };
  } finally {
    await door.close();
    await receiver.stop();
  }
}

/** From the drawing of a picture to its being shown in a browser, in ms. */
async function glassToGlass(host, scene, seconds) {
  const browser = await startBrowser();
  try {
    const glass = await openGlass(browser);
    const door = await openWhipDoor(glass.answer);
    try {
      await host.tell('publish', { url: door.url });
      await sleep(settlingMs);
      const beginNs = Number(process.hrtime.bigint());
      await sleep(seconds * 1000);
      const shown = await glass.shown();
      await host.tell('endStep');
      const drawnNs = scene.drawnNs();
      // The first time that each is seen; the barcode has no two alike.
      const first = new Map(shown.toReversed().map(({ number, ns }) =>
        [number, ns]));
      return [...first].filter(([number, ns]) =>
        ns >= beginNs && drawnNs.has(number))
        .map(([number, ns]) => (ns - drawnNs.get(number)) / 1e6);
    } finally {
      await door.close();
    }
  } finally {
    await browser.stop();
  }
}

/** From the callback to the receiver, without what the pacer adds, in ms. */
function latencies({ stats, arrivals }) {
  const key = ({ ssrc, sequence }) => ssrc * 65_536 + sequence;
  const arrivedNs = new Map(arrivals.map((each) => [key(each), each.ns]));
  return stats.sent.filter((each) => arrivedNs.has(key(each)))
    .map((each) => (each.beforeNs + arrivedNs.get(key(each)) - each.leftNs) /
      1e6);
}

function costLines(alone, published, markdown) {
  const beyond = (part) =>
    published.map((parts, run) => parts[part] - alone[run][part]);
  const parts = ['all', 'javaScript', 'transport', 'opus'];
  const row = (name, figuresOf) =>
    [name, ...parts.map((part) => spreadText(figuresOf(part), 3))];
  const own = published.map((_, run) => ['javaScript', 'transport', 'opus']
    .reduce((sum, part) => sum + beyond(part)[run], 0));
  const middle = median(beyond('all'));
  return [
    formatTable([
      ['processor s/s', 'all', 'JavaScript thread', 'transport', 'opus'],
      row('capture alone', (part) => alone.map((run) => run[part])),
      row('capture and publication', (part) =>
        published.map((run) => run[part])),
      row('beyond the capture', beyond),
    ], { markdown }),
    '',
    `beyond the capture alone: ${middle.toFixed(3)} s/s (JavaScript thread ` +
      `and programs alone ${median(own).toFixed(3)}), at most ${mostCost}: ` +
      `${middle <= mostCost ? 'met' : 'MISSED'}`,
  ];
}

function latencyLines(traced) {
  const values = latencies(traced);
  const middle = median(values);
  return [`packet to wire, without the pacer: median ${middle.toFixed(2)} ms, ` +
    `p95 ${quantile(values, 0.95).toFixed(2)} ms over ${values.length} ` +
    `packets; median at most ${mostLatencyMs} ms: ` +
    `${middle <= mostLatencyMs ? 'met' : 'MISSED'}`];
}

function glassLines(values, seconds) {
  return [`glass to glass, drawn to shown in Chromium: median ${
    median(values).toFixed(0)} ms, p95 ${quantile(values, 0.95).toFixed(0)} ` +
    `ms over ${values.length} pictures in ${seconds} s`];
}

/** Measures all of it; resolves with lines to print. */
export async function measurePublication({ seconds, runs, markdown }) {
  const stage = await startStage();
  try {
    const host = await startHost(stage.environment, captureOptions);
    try {
      const measure = () => measureParts(host.pid, seconds);
      const alone = [];
      const published = [];
      let sent;
      for (let run = 1; run <= runs; run += 1) {
        process.stderr.write(`publication, run ${run} of ${runs}\n`);
        alone.push((await runStep(host, 'alone', measure)).parts);
        sent = await runStep(host, 'publish', measure);
        published.push(sent.parts);
      }
      process.stderr.write('publication, latency\n');
      const traced = await runStep(host, 'traced', () => sleep(seconds * 1000));
      process.stderr.write('publication, glass to glass\n');
      const glass = await glassToGlass(host, stage.scene, seconds);
      await host.stop();
      const [branch] = sent.stats.branches;
      return [
        `== publication of ${sizeOf(size)}@30, ` +
          `${(sent.stats.bitsPerSecond / 1e6).toFixed(1)} Mbit/s and ` +
          `${(branch.frames / sent.seconds).toFixed(0)} pictures/s sent, with ` +
          'sound',
        '', ...costLines(alone, published, markdown),
        ...latencyLines(traced), ...glassLines(glass, seconds),
      ];
    } finally {
      await host.kill();
    }
  } finally {
    await stage.end();
  }
}
