import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { startBrowser } from '../support/chromium.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { waitForPictures } from '../support/preview_page.mjs';
import { until } from '../support/until.mjs';
import { PreviewServer } from '../../lib/preview/preview_server.mjs';
import startSession from '../../lib/session/index.js';

let screen;
let holder;
let loud;
let soft;
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    screen = await startVideo(started, { width: 160, height: 90, fps: 10 });
    holder = await startHolder(started);
    loud = await startPlayer(started,
      { name: 'loud', hertz: 440, amplitude: 0.5 });
    soft = await startPlayer(started,
      { name: 'soft', hertz: 1000, amplitude: 0.05 });
    return [screen, holder, loud, soft];
  },
});

let browser;
before(async () => {
  browser = await startBrowser();
});
after(() => browser?.stop());

async function showSound(audio) {
  const capture = await startSession.startCapture({
    source: {
      type: 'pipewire',
      fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
      nodeId: screen.node.id,
      width: 160,
      height: 90,
    },
    video: { fps: 10, layers: 1 },
    audio,
  });
  const server = await PreviewServer.listen();
  server.show(capture);
  const page = await browser.open();
  await page.goto(server.address);
  await waitForPictures(page, 1);
  return {
    page,
    async end() {
      await capture.stop();
      await server.close(await capture.ended);
      await page.close();
    },
  };
}

/** Decibels that the meters show: the mix, then each source. */
const levels = (page) => page.evaluate(
  '[...document.querySelectorAll(".track")].map((track) =>' +
  ' Number(track.getAttribute("aria-valuenow")))');

const isNear = (value, expected) => Math.abs(value - expected) <= 1;

test('the meters show each source and the mix, and follow them', async () => {
  const { page, end } = await showSound({ linuxAudio: {
    mode: 'process',
    pipeWireTargetObjects: [loud.serial, soft.serial],
    pipeWireAudioSources: [{ applicationName: 'Loud one' },
      { applicationName: 'Soft one' }],
  } });
  try {
    await until(async () => {
      const [mix, first, second] = await levels(page);
      // 0.55, 0.5 and 0.05 of full scale.
      return isNear(mix, -5) && isNear(first, -6) && isNear(second, -26);
    }, 'the levels', 20_000).catch(async (error) => {
      assert.fail(`${error.message}: ${await levels(page)}`);
    });
    assert.deepEqual(await page.evaluate(
      '[...document.querySelectorAll(".meter .name")].map((name) =>' +
      ' name.textContent)'), ['All together', 'Loud one', 'Soft one']);
    await loud.stop();
    await until(async () => {
      const [mix, first] = await levels(page);
      return isNear(mix, -26) && first === -60;
    }, 'the silence of one', 20_000);
  } finally {
    await end();
  }
});

test('the sound of applications can be listened to, and is not at first',
  async () => {
    const { page, end } = await showSound({ linuxAudio:
      { mode: 'process', pipeWireTargetObjects: [soft.serial] } });
    try {
      // Taps what the page hands to its player.
      await page.evaluate(`
        window.played = 0;
        const post = MessagePort.prototype.postMessage;
        MessagePort.prototype.postMessage = function (data) {
          if (data instanceof Int16Array) {
            played = Math.max(played, ...data);
          }
          return post.apply(this, arguments);
        };`);
      assert.equal(
        await page.evaluate('listen.getAttribute("aria-pressed")'), 'false');
      await until(async () => isNear((await levels(page))[0], -26), 'sound',
        20_000);
      assert.equal(await page.evaluate('played'), 0);
      await page.click('#listen');
      await page.until('played > 1500 && played < 1800', 'the sound', 20_000);
      await page.click('#listen');
      assert.equal(
        await page.evaluate('listen.getAttribute("aria-pressed")'), 'false');
      assert.deepEqual(page.complaints, []);
    } finally {
      await end();
    }
  });

test('the sound of everything has the name of its output, and is not played ' +
  'back into itself', async () => {
  const { page, end } = await showSound('system');
  try {
    await page.until(`document.querySelector('.meter .name')?.textContent ===
      '${session.sink.name}'`, 'the name of the output');
    assert.equal(await page.evaluate(
      'document.querySelectorAll(".meter").length'), 1);
    assert.equal(await page.evaluate('listen.offsetWidth'), 0);
    assert.match(await page.text('#sound-hint'), /echo/);
  } finally {
    await end();
  }
});
