import assert from 'node:assert/strict';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { repositoryRoot } from '../support/addon.mjs';
import { startNode } from '../support/child.mjs';
import { useDisplay } from '../support/display.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startPlayer } from '../support/pipewire_sources.mjs';
import { waitForText } from '../support/processes.mjs';
import { startScene } from '../support/scene.mjs';
import { until } from '../support/until.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const size = { width: 320, height: 180 };
const healthy = useDisplay({ ...size, scene: { fps: 30 } });
let tone;
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    tone = await startPlayer(started, { name: 'tone', hertz: 440 });
    return [tone];
  },
});

const freeze = ({ child }) => child.kill('SIGSTOP');
const thaw = ({ child }) => child.kill('SIGCONT');

const root = JSON.stringify(fileURLToPath(repositoryRoot));

// The main thread and workers, each of which does what it is told and says how
// it ended. Nothing of what they say is lost while a thread stands still.
const preparation = () => `
  const { createInterface } = await import('node:readline');
  const { once } = await import('node:events');
  const { Worker } = await import('node:worker_threads');
  const lines = createInterface({ input: process.stdin })[
    Symbol.asyncIterator]();
  const say = (...words) => console.log(...words);
  const told = async () => (await lines.next()).value;
  const request = monitorRequest({ sourceWidth: 320, sourceHeight: 180 });
  const withSound = withProcessAudio(request, [${tone.serial}]);
  const timed = (call) => {
    const begin = performance.now();
    let error;
    try { call(); } catch (thrown) { error = thrown; }
    const { message, code } = error ?? {};
    return { message, code, ms: performance.now() - begin };
  };
  const startWorker = () => {
    const worker = new Worker(\`
      const addon = require(${root});
      const { parentPort } = require('node:worker_threads');
      const timed = \${timed};
      parentPort.on('message', ([name, ...args]) => {
        parentPort.postMessage(timed(() => addon[name](...args)));
      });
    \`, { eval: true, execArgv: [] });
    return Object.assign(async (...call) => {
      worker.postMessage(call);
      const [answer] = await once(worker, 'message');
      return answer;
    }, {
      terminate: () => worker.terminate(),
      unref: () => worker.unref(),
    });
  };
  const collected = collect();
  const pictures = async (count, what) => {
    const { length } = collected.packets;
    await until(() => collected.packets.length >= length + count, what,
      20_000);
  };
`;

/** How long a call may hold its thread: five seconds, and a busy machine. */
const bound = 9_000;

/** Runs `body` in a process whose display and daemon `talk` may stop. */
async function withHost(body, talk) {
  const xvfb = await startXvfb(size);
  const scene = await startScene({ ...size, display: xvfb.display, fps: 30 });
  const node = startNode(preparation() + body,
    { display: xvfb.display, environment: session.environment });
  const hears = (pattern) => waitForText(node.child, node.stdout, pattern,
    `${pattern} (${node.stdout.text})`, 90_000);
  const reaches = (pattern) => waitForText(node.child, node.stderr, pattern,
    String(pattern), 20_000);
  const tell = (line = '') => node.child.stdin.write(`${line}\n`);
  try {
    await talk({ xvfb, hears, reaches, tell });
    node.child.stdin.end();
    const { code, signal, isTimedOut, stderr } = await node.end(40_000);
    assert.equal(isTimedOut, false, `it hangs: ${stderr.slice(-2000)}`);
    assert.equal(signal, null, stderr.slice(-2000));
    assert.equal(code, 0, stderr.slice(-2000));
  } finally {
    node.child.kill('SIGKILL');
    xvfb.thaw();
    thaw(session.daemon);
    await scene.stop();
    await xvfb.stop();
  }
}

const launching = /stage=captureSetup:video-pipeline-launch:begin$/m;

for (const [what, end] of [
  ['a stop', 'addon.stopCapture()'],
  ['a capture', 'addon.captureSetup(request)'],
]) {
  test(`a start that is held up gives way to ${what} of another thread`,
    () => withHost(`
      const worker = startWorker();
      await told();
      let failed;
      worker('captureSetup', withSound).then((answer) => { failed = answer; });
      await told();
      process.env.DISPLAY = ${JSON.stringify(healthy.display)};
      const ended = timed(() => ${end});
      await until(() => failed !== undefined, 'the failure', 20_000);
      say('ended', JSON.stringify([ended, failed]));
      // What has failed on the other thread ends nothing of this one.
      if (addon.isCapturing() !== ${end !== 'addon.stopCapture()'}) {
        throw new Error('the state is that of the other thread');
      }
      if (!addon.isCapturing()) addon.captureSetup(request);
      await pictures(10, 'pictures of the next capture');
      addon.stopCapture();
      process.exit(0);
    `, async ({ xvfb, hears, reaches, tell }) => {
      xvfb.freeze();
      freeze(session.daemon);
      tell();
      await reaches(launching);
      tell();
      const [, text] = await hears(/^ended (.*)$/m);
      const [ended, failed] = JSON.parse(text);
      assert.equal(ended.message, undefined);
      assert.ok(ended.ms < bound, `it took ${ended.ms} ms`);
      assert.deepEqual([failed.message, failed.code], [
        'the start was given up: another thread ends it', 'start-interrupted',
      ]);
    }));
}

test('looks do not end a start that is held up', () => withHost(`
  const worker = startWorker();
  await told();
  let failed;
  worker('captureSetup', request).then((answer) => { failed = answer; });
  await told();
  const looks = ['getStats', 'resetStats', 'forceKeyframe', 'isCapturing']
    .map((name) => timed(() => addon[name]()));
  looks.push(timed(() => addon.setBitrate(1_000_000)));
  await until(() => failed !== undefined, 'the failure', 20_000);
  say('looked', JSON.stringify([looks, failed]));
  process.exit(0);
`, async ({ xvfb, hears, reaches, tell }) => {
  xvfb.freeze();
  tell();
  await reaches(launching);
  tell();
  const [, text] = await hears(/^looked (.*)$/m);
  const [looks, failed] = JSON.parse(text);
  for (const { ms } of looks) assert.ok(ms < bound, `it took ${ms} ms`);
  assert.equal(failed.code, 'display-stalled');
}));

test('a worker that is ended while its start is held up ends no process',
  () => withHost(`
    const worker = startWorker();
    await told();
    worker('captureSetup', withSound).catch(() => {});
    await told();
    const begin = performance.now();
    await worker.terminate();
    say('terminated', performance.now() - begin);
    process.env.DISPLAY = ${JSON.stringify(healthy.display)};
    addon.captureSetup(request);
    await pictures(10, 'pictures of the next capture');
    addon.stopCapture();
    // Nothing keeps the process any more.
    process.stdin.destroy();
  `, async ({ xvfb, hears, reaches, tell }) => {
    xvfb.freeze();
    freeze(session.daemon);
    tell();
    await reaches(launching);
    tell();
    const [, ms] = await hears(/^terminated (.*)$/m);
    assert.ok(Number(ms) < bound, `it took ${ms} ms`);
  }));

for (const [what, call] of [
  ['starts a capture', `worker('captureSetup', withSound)`],
  ['starts one that is held up behind another', `
    worker('captureSetup', withSound);
    startWorker()('captureSetup', withSound)`],
  ['takes over another capture', `
    (await worker('captureSetup', request), say('running'), await told(),
    startWorker()('captureSetup', withSound))`],
]) {
  test(`process.exit is not held up by a worker that ${what}`, async () => {
    let begin;
    await withHost(`
      const worker = startWorker();
      await told();
      ${call};
      await told();
      process.exit(0);
    `, async ({ xvfb, hears, reaches, tell }) => {
      if (what.includes('over')) {
        tell();
        await hears(/^running$/m);
      }
      xvfb.freeze();
      freeze(session.daemon);
      tell();
      await reaches(what.includes('over') ?
        /stage=captureSetup:parsed[^]*stage=captureSetup:parsed/ : launching);
      begin = performance.now();
      tell();
    });
    const ms = performance.now() - begin;
    assert.ok(ms < bound, `it took ${ms} ms`);
  });
}

for (const [what, end] of [
  ['stopped', 'addon.stopCapture();'],
  ['taken over and stopped', `
    process.env.DISPLAY = HEALTHY;
    addon.captureSetup(request);
    await pictures(10, 'pictures of the next capture');
    addon.stopCapture();`],
  ['left to the end of its worker', 'await worker.terminate();'],
]) {
  test(`a worker's capture that stands still and is ${what} keeps no process`,
    () => withHost(`
      const worker = startWorker();
      await worker('captureSetup', withSound);
      say('running');
      await told();
      ${end.replace('HEALTHY', JSON.stringify(healthy.display))}
      worker.unref();
      process.stdin.destroy();
    `, async ({ xvfb, hears, tell }) => {
      await hears(/^running$/m);
      xvfb.freeze();
      freeze(session.daemon);
      tell();
    }));
}

// Everything at once, the same each time but for when it happens.
function seeded(seed) {
  let state = seed;
  return (below) => {
    state = (Math.imul(state, 1_103_515_245) + 12_345) & 0x7fffffff;
    return (state >> 8) % below;
  };
}

test('threads that start and stop while both servers come and go', () =>
  withHost(`
    const threads = [startWorker(), startWorker(), async (name, ...args) => {
      await new Promise((resolve) => { setImmediate(resolve); });
      return timed(() => addon[name](...args));
    }];
    const calls = [['captureSetup', request], ['captureSetup', withSound],
      ['stopCapture'], ['captureSetup', withSound], ['getStats'],
      ['updateAudioTargets', { mode: 'process',
        pipeWireTargetObjects: [${tone.serial}] }], ['resetStats'],
      ['forceKeyframe']];
    let isOver = false;
    const answers = [];
    const running = Promise.all(threads.map(async (thread, offset) => {
      for (let turn = offset; !isOver; turn += 1) {
        answers.push([calls[turn % calls.length][0],
          await thread(...calls[turn % calls.length])]);
      }
    }));
    say('running');
    // The standard input is read while the main thread has a moment.
    await told();
    isOver = true;
    await running;
    say('answers', JSON.stringify(answers));
    addon.captureSetup(withSound);
    await pictures(10, 'pictures after it all');
    await until(() => collected.audio.some(({ nonZeroSamples }) =>
      nonZeroSamples > 0), 'sound after it all', 20_000);
    addon.stopCapture();
    process.exit(0);
  `, async ({ xvfb, hears, tell }) => {
    await hears(/^running$/m);
    const random = seeded(12);
    const moment = (ms) => {
      const begin = performance.now();
      return until(() => performance.now() - begin > ms, 'a moment');
    };
    for (let round = 0; round < 6; round += 1) {
      await moment(random(700));
      if (round % 3 !== 1) xvfb.freeze();
      await moment(random(50));
      if (round % 3 !== 0) freeze(session.daemon);
      // Some stalls are over before anything is given up, some are not.
      await moment(random(round % 2 === 0 ? 6_000 : 1_500));
      xvfb.thaw();
      thaw(session.daemon);
    }
    tell();
    const [, text] = await hears(/^answers (.*)$/m);
    const answers = JSON.parse(text);
    assert.ok(answers.length > 20, `${answers.length} calls`);
    const known = new Set([undefined, 'connection-invalid', 'display-stalled',
      'no-active-capture', 'not-supported', 'session-manager-stalled',
      'sound-server-stalled', 'source-stalled', 'start-interrupted',
      'state-change-failed', 'target-missing']);
    assert.deepEqual(answers.filter(([, { code, message }]) =>
      !known.has(code) || (code === undefined && message !== undefined)), []);
    assert.deepEqual(answers.filter(([, { ms }]) => ms > bound), []);
  }));
