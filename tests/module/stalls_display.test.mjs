import assert from 'node:assert/strict';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { repositoryRoot } from '../support/addon.mjs';
import { startNode } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';
import { waitForText } from '../support/processes.mjs';
import { startScene } from '../support/scene.mjs';
import { grabServerOf } from '../support/x_grab.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const size = { width: 320, height: 180 };
const healthy = useDisplay({ ...size, scene: { fps: 30 } });

/** Ways in which a display server does nothing; each returns how to end it. */
const stalls = {
  'is stopped': (xvfb) => {
    xvfb.freeze();
    return xvfb.thaw;
  },
  'is grabbed': async (xvfb) => (await grabServerOf(xvfb)).release,
};

// What the host under test has at hand. `say` and `told` are its talk with the
// test; `timed` measures how long a call holds its thread.
const preparation = `
  const { createInterface } = await import('node:readline');
  const lines = createInterface({ input: process.stdin })[
    Symbol.asyncIterator]();
  const say = (...words) => console.log(...words);
  const told = async () => (await lines.next()).value;
  const timed = (call) => {
    const begin = performance.now();
    let error;
    try { call(); } catch (thrown) { error = thrown; }
    const { message, code } = error ?? {};
    return { message, code, ms: performance.now() - begin };
  };
  const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });
  const collected = collect();
  const pictures = async (count, what) => {
    const { length } = collected.packets;
    await until(() => collected.packets.length >= length + count, what);
  };
  const reasons = (wanted) => collected.events
    .filter(({ state }) => state === wanted).map(({ reason }) => reason);
`;

/**
 * Runs `body` in a host of its own, whose display then stalls; `talk` answers
 * what the host says. Tells how the host ended.
 */
async function withHost(body, talk) {
  const xvfb = await startXvfb(size);
  const scene = await startScene({ ...size, display: xvfb.display, fps: 30 });
  const node = startNode(preparation + body, { display: xvfb.display });
  const hears = (pattern) => waitForText(node.child, node.stdout, pattern,
    String(pattern), 40_000);
  const tell = (line = '') => node.child.stdin.write(`${line}\n`);
  try {
    await talk({ xvfb, hears, tell, node });
    node.child.stdin.end();
    return await node.end(40_000);
  } finally {
    node.child.kill('SIGKILL');
    xvfb.thaw();
    await scene.stop();
    await xvfb.stop();
  }
}

function assertEnded({ code, signal, isTimedOut, stderr }, expected = 0) {
  assert.equal(isTimedOut, false, `it hangs: ${stderr.slice(-2000)}`);
  assert.equal(signal, null, stderr.slice(-2000));
  assert.equal(code, expected, stderr.slice(-2000));
}

/** How long a call may hold the thread: five seconds, and a busy machine. */
const bound = 8_000;

const parse = ([, text]) => JSON.parse(text);

for (const [what, stall] of Object.entries(stalls)) {
  test(`a display that ${what} before the start is named in time`, async () => {
    const ended = await withHost(`
      await told();
      const refused = timed(() => addon.captureSetup(request));
      say('refused', JSON.stringify(refused));
      addon.getStats();
      addon.stopCapture();
      say('capturing', addon.isCapturing());
      await told();
      addon.captureSetup(request);
      await pictures(5, 'pictures after the stall');
      addon.stopCapture();
      say('recovered');
      process.exit(0);
    `, async ({ xvfb, hears, tell }) => {
      const goOn = await stall(xvfb);
      tell();
      const { ms, ...error } = parse(await hears(/^refused (.*)$/m));
      assert.deepEqual(error, {
        message: 'the X server does not answer', code: 'display-stalled',
      });
      assert.ok(ms < bound, `it took ${ms} ms`);
      await hears(/^capturing false$/m);
      goOn();
      tell();
      await hears(/^recovered$/m);
    });
    assertEnded(ended);
  });

  test(`a capture of a display that ${what} can be stopped`, async () => {
    const ended = await withHost(`
      addon.captureSetup(request);
      await pictures(5, 'pictures');
      say('running');
      await told();
      const stopped = timed(() => addon.stopCapture());
      say('stopped', JSON.stringify(stopped));
      await until(() => reasons('stopped').includes('stopCapture'), 'event');
      process.env.DISPLAY = ${JSON.stringify('HEALTHY')};
      addon.captureSetup(request);
      await pictures(10, 'pictures of the next capture');
      say('again');
      await told();
      // The old pipeline comes back now and does no harm.
      await pictures(30, 'more pictures');
      const late = collected.packets.some(({ timestampUs }, index, all) =>
        index > 0 && timestampUs < all[index - 1].timestampUs - 5_000_000);
      addon.stopCapture();
      // Of a running capture one picture may be encoded and not yet queued.
      const { framesEncoded, videoBridgeQueuedPackets } = addon.getStats();
      say('done', late, framesEncoded === videoBridgeQueuedPackets);
    `.replace('HEALTHY', healthy.display), async (
      { xvfb, hears, tell, node }) => {
      await hears(/^running$/m);
      const goOn = await stall(xvfb);
      tell();
      const { ms, message } = parse(await hears(/^stopped (.*)$/m));
      assert.equal(message, undefined);
      assert.ok(ms < bound, `it took ${ms} ms`);
      await hears(/^again$/m);
      goOn();
      tell();
      await waitForText(node.child, node.stderr,
        /stage=pipeline:video-came-back$/m, 'the old pipeline', 20_000);
      await hears(/^done false true$/m);
    });
    assertEnded(ended);
  });

  test(`a capture of a display that ${what} gives way to another`, async () => {
    const ended = await withHost(`
      addon.captureSetup(request);
      await pictures(5, 'pictures');
      say('running');
      await told();
      process.env.DISPLAY = ${JSON.stringify('HEALTHY')};
      const taken = timed(() => addon.captureSetup(request));
      say('taken', JSON.stringify(taken));
      await pictures(10, 'pictures of the next capture');
      addon.stopCapture();
      say('done');
    `.replace('HEALTHY', healthy.display), async ({ xvfb, hears, tell }) => {
      await hears(/^running$/m);
      await stall(xvfb);
      tell();
      const { ms, message } = parse(await hears(/^taken (.*)$/m));
      assert.equal(message, undefined);
      assert.ok(ms < bound, `it took ${ms} ms`);
      await hears(/^done$/m);
    });
    assertEnded(ended);
  });

  for (const [how, code, end] of [
    ['process.exit', 7, 'process.exit(7);'],
    ['nothing left to do', 0, 'addon.stopCapture();'],
  ]) {
    test(`a process ends by ${how} while its display ${what}`, async () => {
      let begin;
      const ended = await withHost(`
        addon.captureSetup(request);
        await pictures(5, 'pictures');
        say('running');
        await told();
        ${end}
      `, async ({ xvfb, hears, tell }) => {
        await hears(/^running$/m);
        await stall(xvfb);
        begin = performance.now();
        tell();
      });
      const ms = performance.now() - begin;
      assertEnded(ended, code);
      assert.ok(ms < bound, `it took ${ms} ms`);
    });
  }

  test(`a display that ${what} in mid-capture is an error, once`, async () => {
    const ended = await withHost(`
      addon.captureSetup(request);
      await pictures(5, 'pictures');
      say('running');
      await told();
      const begin = performance.now();
      await until(() => reasons('error').length > 0, 'the event', 20_000);
      const after = performance.now() - begin;
      const event = collected.events.find(({ state }) => state === 'error');
      say('error', JSON.stringify(
        { reason: event.reason, code: event.code, after }));
      await until(() => performance.now() - begin > 8_000, 'a while');
      const { length } = collected.packets;
      await told();
      await until(() => collected.packets.length > length + 30, 'pictures');
      addon.stopCapture();
      // How old each picture was when it came, and how many came too late.
      const ages = collected.packets.map(({ timestampUs }, i) =>
        collected.arrivalsUs[i] - timestampUs);
      const youngest = Math.min(...ages);
      const old = ages.slice(length)
        .filter((age) => age - youngest > 1_000_000).length;
      say('after', JSON.stringify({ old, errors: reasons('error').length }));
    `, async ({ xvfb, hears, tell }) => {
      await hears(/^running$/m);
      const goOn = await stall(xvfb);
      tell();
      const { after, ...event } = parse(await hears(/^error (.*)$/m));
      assert.deepEqual(event, {
        reason: 'video: the X server does not answer', code: 'display-stalled',
      });
      assert.ok(after < 8_000, `it took ${after} ms`);
      setTimeout(() => {
        goOn();
        tell();
      }, 8_500);
      assert.deepEqual(parse(await hears(/^after (.*)$/m)),
        { old: 0, errors: 1 });
    });
    assertEnded(ended);
  });
}

test('ten displays given up in a row leave nothing behind', async () => {
  const ended = await withHost(`
    const { readdirSync } = await import('node:fs');
    const threads = () => readdirSync('/proc/self/task').length;
    const stalling = process.env.DISPLAY;
    for (let round = 0; round < 10; round += 1) {
      process.env.DISPLAY = stalling;
      addon.captureSetup(request);
      await pictures(3, 'pictures');
      say('round ' + round);
      await told();
      process.env.DISPLAY = ${JSON.stringify('HEALTHY')};
      addon.captureSetup(request);
      await pictures(3, 'pictures of the other display');
      say('goOn ' + round);
      await told();
      addon.stopCapture();
    }
    const before = threads();
    process.env.DISPLAY = stalling;
    addon.captureSetup(request);
    addon.stopCapture();
    say('done', threads() - before < 10);
  `.replace('HEALTHY', healthy.display), async (
    { xvfb, hears, tell, node }) => {
    for (let round = 0; round < 10; round += 1) {
      await hears(new RegExp(`^round ${round}$`, 'm'));
      xvfb.freeze();
      tell();
      await hears(new RegExp(`^goOn ${round}$`, 'm'));
      xvfb.thaw();
      tell();
    }
    await hears(/^done true$/m);
    await waitForText(node.child, node.stderr,
      /(?:stage=pipeline:video-came-back\n[^]*){10}/, 'all of them', 20_000);
  });
  assertEnded(ended);
});

test('a worker that waits for a stalled display is told, others go on',
  async () => {
    const root = JSON.stringify(fileURLToPath(repositoryRoot));
    const ended = await withHost(`
      const { Worker } = await import('node:worker_threads');
      await told();
      // Evaluated text is a module here too, as it is for the process itself.
      const worker = new Worker(
        'import { createRequire } from "node:module";' +
        'const addon = createRequire(' + ${JSON.stringify(root)} + ')(' +
        ${JSON.stringify(root)} + ');' +
        'addon.captureSetup(' + JSON.stringify(request) + ');',
        { eval: true });
      const failed = new Promise((resolve) => worker.once('error', resolve));
      say('stopped', JSON.stringify(timed(() => addon.stopCapture())));
      say('worker', (await failed).message);
    `, async ({ xvfb, hears, tell }) => {
      xvfb.freeze();
      tell();
      const { ms, message } = parse(await hears(/^stopped (.*)$/m));
      assert.equal(message, undefined);
      assert.ok(ms < bound, `it took ${ms} ms`);
      await hears(/^worker the X server does not answer$/m);
    });
    assertEnded(ended);
  });
