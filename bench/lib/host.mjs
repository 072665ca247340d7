// The program around one side: calls the module, or starts a peer and reads
// its pipes, and keeps what arrives with the time of its arrival. A process of
// its own, so that processor time and memory of a side are its alone.
import { once } from 'node:events';
import { writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import process from 'node:process';

import { startHelper } from '../../tests/support/processes.mjs';
import { moduleRequest, sides } from './sides.mjs';

const now = () => Number(process.hrtime.bigint());

const startModule = (scenario, receive, fail) => {
  const addon = createRequire(import.meta.url)('../../index.js');
  addon.onFragmentReady(({ branchIndex, payload }) =>
    receive(branchIndex, payload));
  addon.onCaptureLifecycle(({ state, reason }) => {
    if (state === 'error') fail(reason);
  });
  const beginNs = now();
  addon.captureSetup(moduleRequest(scenario));
  return { beginNs, pids: [], stop: async () => addon.stopCapture() };
};

const startPeer = ([command, ...args], scenario, receive, fail) => {
  const pipes = scenario.branches.map(() => 'pipe');
  const beginNs = now();
  const child = startHelper(command, args,
    { stdio: ['ignore', 'ignore', 'pipe', ...pipes] });
  scenario.branches.forEach((_, i) => {
    child.stdio[3 + i].on('data', (chunk) => receive(i, chunk));
  });
  let errors = '';
  child.stderr.setEncoding('utf8').on('data', (text) => {
    errors = (errors + text).slice(-2000);
  });
  let isStopping = false;
  const closed = once(child, 'close').then(() => {
    if (!isStopping) fail(`${command} has ended: ${errors}`);
  });
  child.once('error', (error) => fail(error.message));
  return {
    beginNs,
    pids: [child.pid],
    stop: async () => {
      isStopping = true;
      child.kill('SIGTERM');
      const insist = setTimeout(() => child.kill('SIGKILL'), 3000);
      await closed;
      clearTimeout(insist);
    },
  };
};

function run({ sideName, scenario, display, folder }) {
  const chunks = scenario.branches.map(() => []);
  let waiting = chunks.length;
  const fail = (reason) => process.send({ type: 'failed', reason });
  let running = null;
  const receive = (branch, data) => {
    const list = chunks[branch];
    list.push({ at: now(), data });
    if (list.length > 1) return;
    waiting -= 1;
    if (waiting === 0) {
      process.send({
        type: 'flowing',
        pids: [process.pid, ...running.pids],
        firstNs: chunks[0][0].at - running.beginNs,
      });
    }
  };
  const side = sides.find(({ name }) => name === sideName);
  running = side.command === undefined
    ? startModule(scenario, receive, fail)
    : startPeer(side.command(scenario, display), scenario, receive, fail);
  process.once('message', async () => {
    await running.stop();
    chunks.forEach((list, branch) => {
      writeFileSync(path.join(folder, `${branch}.h264`),
        Buffer.concat(list.map(({ data }) => data)));
      writeFileSync(path.join(folder, `${branch}.json`),
        JSON.stringify(list.map(({ at, data }) => [at, data.length])));
    });
    process.send({ type: 'written' }, () => process.exit());
  });
}

process.once('message', run);
// Whoever started this process is gone: nobody is left to measure for. A peer
// is the helper of this process and ends with it.
process.once('disconnect', () => process.exit(1));
