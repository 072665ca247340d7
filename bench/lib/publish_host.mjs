// Captures, with or without publishing what it captures. A process of its own,
// so that its processor time is that of a host which does nothing else.
import { createRequire } from 'node:module';
import process from 'node:process';

import { median } from './figures.mjs';
import { traceLatency } from './publish_trace.mjs';

const require = createRequire(import.meta.url);
const session = require('../../lib/session/index.js');
const publishing = require('../../lib/publish/index.js');

let capture;
let end;

/** Reads the packets, as any host does, and does nothing with them. */
function readAlone() {
  const readers = [capture.video({ branch: 0 }),
    ...capture.hasAudio ? [capture.audio()] : []];
  const drained = readers.map(async (reader) => {
    // eslint-disable-next-line no-unused-vars -- only its coming matters
    for await (const _ of reader);
  });
  return async () => {
    await Promise.all(readers.map((reader) => reader.return()));
    await Promise.all(drained);
  };
}

async function publish(url) {
  const publication =
    await publishing.publish(capture, { url, reconnect: false });
  const rates = [];
  const timer = setInterval(() => {
    const [branch] = publication.stats().branches;
    if (branch !== undefined) rates.push(branch.bitsPerSecond);
  }, 1000);
  return async () => {
    clearInterval(timer);
    const stats = { ...publication.stats(), bitsPerSecond: median(rates) };
    await publication.stop();
    return stats;
  };
}

const steps = {
  async start({ options }) {
    capture = await session.startCapture(options);
    return {};
  },
  async alone() {
    end = readAlone();
    return {};
  },
  async publish({ url }) {
    end = await publish(url);
    return {};
  },
  async traced({ url }) {
    const trace = traceLatency();
    const finish = await publish(url);
    end = async () => ({ ...await finish(), sent: trace.end() });
    return {};
  },
  async endStep() {
    return { stats: await end() };
  },
  async stop() {
    await capture.stop();
    return {};
  },
};

process.on('message', async ({ step, ...parameters }) => {
  try {
    process.send({ type: step, ...await steps[step](parameters) });
  } catch (error) {
    process.send({ type: 'failed', reason: `${step}: ${error.message}` });
  }
});
process.once('disconnect', () => process.exit(1));
