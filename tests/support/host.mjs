import assert from 'node:assert/strict';
import { once } from 'node:events';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';
import { collectText, startHelper } from './processes.mjs';
import { stagesOf } from './child.mjs';

const program = fileURLToPath(new URL('./host_program.mjs', import.meta.url));

/** Sends a function to the program; resolves with what it returned. */
function callerOf(child, errors) {
  const lines = createInterface({ input: child.stdout })[
    Symbol.asyncIterator]();
  return async (run, ...args) => {
    child.stdin.write(`${JSON.stringify({ source: String(run), args })}\n`);
    const { value: line, done } = await lines.next();
    if (done) throw new Error(`the host ended: ${errors.text.slice(-2000)}`);
    const { value, error } = JSON.parse(line);
    if (error !== undefined) {
      throw Object.assign(new Error(error.message), { name: error.name });
    }
    return value;
  };
}

function startHost({
  display, environment = {}, prefix = [], stderr = 'pipe', nodeOptions = [],
}) {
  const env = { ...process.env, ...environment };
  if (display === undefined) delete env.DISPLAY;
  else env.DISPLAY = display;
  delete env.NODE_TEST_CONTEXT;
  const [command, ...args] =
    [...prefix, process.execPath, ...nodeOptions, program];
  const child = startHelper(command, args,
    { env, stdio: ['pipe', 'pipe', stderr] });
  child.stdin.on('error', () => {});
  const errors =
    child.stderr === null ? { text: '' } : collectText(child.stderr);
  const call = callerOf(child, errors);
  return {
    pid: child.pid,
    child,
    call,
    errors,
    stages: () => stagesOf(errors.text, child.pid),
    setup: (request) => call(({ addon, collected }, wanted) => {
      for (const list of [collected.packets, collected.arrivalsUs,
        collected.audio, collected.events]) list.length = 0;
      addon.captureSetup(wanted);
    }, request),
    stop: () => call(async ({ addon, collected, until }) => {
      addon.stopCapture();
      await until(() => collected.events.at(-1)?.state === 'stopped',
        'the stopped event');
    }),
    stats: () => call(({ addon }) => addon.getStats()),
    isCapturing: () => call(({ addon }) => addon.isCapturing()),
    /** Waits for so many packets more. */
    packets: (count = 5) => call(async ({ collected, until }, wanted) => {
      const before = collected.packets.length;
      await until(() => collected.packets.length >= before + wanted,
        'packets', 20_000);
    }, count),
    numbers: () => call(({ numbers }) => numbers()),
    lastColour: (x, y) => call(({ lastColour }, ...at) => lastColour(...at),
      x, y),
    /** The reasons of the error events so far, once there are `count`. */
    errorEvents: (count = 0) => call(
      async ({ collected, until }, wanted) => {
        const errorsNow = () => collected.events
          .filter(({ state }) => state === 'error')
          .map(({ reason }) => reason);
        await until(() => errorsNow().length >= wanted, 'an error event',
          20_000);
        return errorsNow();
      }, count),
    async end() {
      const closed = once(child, 'close');
      child.stdin.end();
      const timer = setTimeout(() => child.kill('SIGKILL'), 30_000);
      const [code, signal] = await closed;
      clearTimeout(timer);
      return { code, signal };
    },
  };
}

/**
 * Runs `test` with a host process of its own, which has to be alive and well
 * at the end of it.
 */
export async function withHost(options, test) {
  const host = startHost(options);
  try {
    await test(host);
    const { code, signal } = await host.end();
    assert.equal(signal, null, host.errors.text.slice(-2000));
    assert.equal(code, 0, host.errors.text.slice(-2000));
  } finally {
    host.child.kill('SIGKILL');
  }
}

/** A capture that works, from its setup to its last event. */
export async function checkCapture(host, request) {
  await host.setup(request);
  await host.packets();
  await host.stop();
  const events = await host.call(({ collected }) =>
    collected.events.map(({ state }) => state));
  assert.deepEqual(events, ['ready', 'stopped']);
}
