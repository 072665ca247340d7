/* global document, getComputedStyle -- what is evaluated runs in the page */
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { after, before, describe, test } from 'node:test';
import { promisify } from 'node:util';
import { PreviewServer } from '../../lib/preview/preview_server.mjs';
import session from '../../lib/session/index.js';
import { startBrowser } from '../support/chromium.mjs';
import { useDisplay } from '../support/display.mjs';
import { FakeCapture } from '../support/fake_capture.mjs';
import { connect, enter } from '../support/preview_client.mjs';
import { figure, waitForColours, waitForMotion, waitForPictures } from
  '../support/preview_page.mjs';
import { drawnRate, readTap, resetTap, tapPage } from
  '../support/preview_tap.mjs';
import { until } from '../support/until.mjs';

const size = { width: 640, height: 360 };
useDisplay({ ...size, scene: { fps: 30 } });

// An encoder that has few bits takes a few steps of a colour away.
const mostColourError = 6;

const run = promisify(execFile);

const branchRates = [30, 15, 7];

let browser;
before(async () => {
  browser = await startBrowser();
});
after(() => browser?.stop());

async function showScene() {
  const capture = await session.startCapture({
    source: { type: 'monitor', geometry: { x: 0, y: 0, ...size } },
    video: {
      fps: branchRates[0],
      bitrate: 4_000_000,
      layers: 3,
      branches: [
        { width: 320, fps: branchRates[1], bitrate: 1_500_000 },
        { width: 160, fps: branchRates[2], bitrate: 800_000 },
      ],
    },
  });
  const server = await PreviewServer.listen();
  server.show(capture);
  return { capture, server };
}

/** Whether an element takes any place on the page. */
const isShown = (page, selector) => page.evaluate((wanted) =>
  (document.querySelector(wanted)?.getBoundingClientRect().width ?? 0) > 0,
selector);

/** The different texts of all figures that tell about this moment. */
const liveFigures = async (page) => [...new Set(await page.evaluate(
  '[...document.querySelectorAll(".figures b, .values b")].map((figure) =>' +
  ' figure.textContent)'))];

// Roles that mean nothing to a listener without a name.
const needsName = ['button', 'checkbox', 'group', 'image', 'meter', 'radio',
  'region', 'slider'];

const howToStartAgain = /run linux-capture preview once more/;

const isNear = (value, expected) => Math.abs(value - expected) < 0.2 * expected;

describe('the page of a capture with three branches', () => {
  let capture;
  let server;
  let page;
  before(async () => {
    ({ capture, server } = await showScene());
    page = await browser.open();
    await tapPage(page);
    await page.goto(server.address);
    await waitForPictures(page, branchRates.length);
  });
  after(async () => {
    await capture?.stop();
    await server?.close();
  });

  for (const branch of branchRates.keys()) {
    test(`branch ${branch} moves, in the colours of the screen`, async () => {
      await waitForMotion(page, branch, 5);
      const error = await waitForColours(page, branch, mostColourError);
      assert.ok(error <= mostColourError, `${error} steps off`);
    });
  }

  test('shows the rate and the bitrate of each', async () => {
    for (const [branch, rate] of branchRates.entries()) {
      // A busy machine draws fewer than there are.
      await until(async () => {
        const drawn = await drawnRate(page, branch);
        return isNear(await figure(page, branch, 'fps'), drawn) &&
          drawn <= 1.2 * rate;
      }, 'the rate at which pictures are drawn', 20_000);
      await until(async () => await figure(page, branch, 'rate') > 0,
        'a bitrate', 20_000);
      assert.ok(await figure(page, branch, 'latency') >= 0);
    }
    assert.equal(await page.text('#state'), 'Live');
  });

  test('fewer layers are fewer pictures, and all again all', async () => {
    const sum = (counts) => counts.reduce((all, count) => all + count, 0);
    /** Lets enough come and compares it with what went to the decoder. */
    const choose = async (most, isEnough) => {
      await page.click(`#layers label:nth-of-type(${most + 1})`);
      await resetTap(page);
      for (const branch of [0, 1]) {
        const { received, decoded } = await until(async () => {
          const counted = await readTap(page, branch);
          return sum(counted.received) >= 40 &&
            isEnough(counted) && counted;
        }, `pictures of layer ${most}`, 30_000);
        const allowed = sum(received.slice(0, most + 1));
        assert.ok(decoded <= allowed, `${decoded} of ${received}`);
      }
    };
    // Each layer has as many as all those below it together.
    await choose(0, ({ decoded }) => decoded > 0);
    await choose(1, ({ decoded, received }) => decoded > received[0]);
    await choose(2, ({ decoded, received }) =>
      decoded > received[0] + received[1]);
    const error = await waitForColours(page, 0, mostColourError);
    assert.ok(error <= mostColourError, `${error} steps off`);
    assert.deepEqual(page.complaints, []);
  });

  test('the button brings a keyframe to every branch', async () => {
    const counts = () => capture.stats().video.branches.map(
      ({ keyframes }) => keyframes);
    const before = counts();
    const startedMs = performance.now();
    // Two seconds lie between those that come by themselves.
    const hasMore = () => {
      const regular = (performance.now() - startedMs) / 2000 + 1;
      return counts().every(
        (count, branch) => count - before[branch] > regular + 1);
    };
    await until(async () => {
      await page.click('#keyframe');
      return hasMore();
    }, 'more keyframes than come by themselves', 20_000);
    for (const [branch, count] of counts().entries()) {
      await until(async () =>
        await figure(page, branch, 'keyframes') >= count,
      'the count in the page');
    }
  });

  test('the button pauses, and goes on with what is there then', async () => {
    await page.click('#pause');
    await until(async () => await page.text('#state') === 'Paused',
      'the pause', 20_000);
    assert.equal(capture.isPaused, true);
    assert.equal(
      await page.evaluate('pause.getAttribute("aria-pressed")'), 'true');
    // What was under way has been drawn, and nothing comes after it.
    await until(async () => await figure(page, 0, 'fps') === 0,
      'pictures to stand still', 20_000);
    await page.click('#pause');
    await until(async () => await page.text('#state') === 'Live',
      'the end of the pause', 20_000);
    for (const branch of branchRates.keys()) {
      await waitForMotion(page, branch, 3);
    }
    await until(async () => {
      const latency = await figure(page, 0, 'latency');
      return latency >= 0 && latency < 2_000;
    }, 'a latency that leaves out the pause', 20_000);
    assert.deepEqual(page.complaints, []);
  });

  test('one branch can be shown alone, and all again', async () => {
    await page.press('1');
    const isVisible = (branch) => page.evaluate((wanted) =>
      document.querySelector(`.tile[data-branch="${wanted}"]`)
        .getBoundingClientRect().width > 0, branch);
    assert.deepEqual([await isVisible(0), await isVisible(1),
      await isVisible(2)], [false, true, false]);
    await waitForMotion(page, 1, 5);
    await page.press('a');
    for (const branch of branchRates.keys()) {
      await waitForMotion(page, branch, 3);
    }
  });

  test('what cannot be used on this capture is not there', async () => {
    assert.equal(await isShown(page, '#bitrate'), false);
    assert.equal(await isShown(page, '#listen'), false);
    assert.equal(await isShown(page, '#view'), true);
    assert.equal(await isShown(page, '#layers'), true);
    await page.click('.keys summary');
    assert.deepEqual(await page.evaluate(
      '[...document.querySelectorAll(".keys dl div")].filter((row) =>' +
      ' row.offsetHeight > 0).map((row) => row.querySelector("dd")' +
      '.textContent)'), ['all branches', 'one branch',
      'next choice of layers', 'pause', 'keyframe', 'full screen',
      'dark or light']);
    await page.click('.keys summary');
  });

  test('every picture, figure and control has a name', async () => {
    const { nodes } = await page.call('Accessibility.getFullAXTree');
    const named = new Map();
    for (const { ignored, role, name } of nodes) {
      if (ignored || !needsName.includes(role.value)) continue;
      assert.notEqual(name?.value ?? '', '', `a ${role.value}`);
      named.set(role.value, (named.get(role.value) ?? 0) + 1);
    }
    // Three canvases and four plots; the choices of branches and of layers.
    assert.equal(named.get('image'), 7);
    assert.equal(named.get('radio'), 4 + 3);
    // Three live figures and two counts of each branch, and all the plots'.
    const figures = await page.evaluate(
      '[...document.querySelectorAll("dl:not(.keys dl) b")].map((figure) =>' +
      ' figure.closest("div").querySelector("dt").textContent)');
    assert.equal(figures.length, 3 * (3 + 2) + 4 * 3);
    assert.ok(figures.every((name) => name.length > 3), figures.join());
    assert.equal(await page.evaluate(
      'document.querySelectorAll("b").length'), figures.length);
  });

  test('the colours follow the system, and then the button', async () => {
    const ground = () =>
      page.evaluate('getComputedStyle(document.body).backgroundColor');
    await page.setColours('dark');
    const dark = await ground();
    await page.setColours('light');
    const light = await ground();
    assert.notEqual(dark, light);
    await page.click('#theme');
    assert.equal(await ground(), dark);
    await page.click('#theme');
    assert.equal(await ground(), light);
  });

  test('its address holds no token, and another tab may watch', async () => {
    const address = await page.evaluate('location.href');
    assert.doesNotMatch(address, /token/);
    const other = await browser.open();
    await other.goto(address);
    await waitForPictures(other, branchRates.length);
    await waitForMotion(other, 0, 3);
    await other.close();
  });

  test('the used address leads back to the page in the same browser',
    async () => {
      const again = await browser.open();
      await again.goto(server.address);
      await waitForPictures(again, branchRates.length);
      assert.equal(await again.evaluate('location.href'),
        await page.evaluate('location.href'));
      assert.deepEqual(again.complaints.filter(
        (text) => !text.includes('403')), []);
      await again.close();
    });

  test('another browser is refused by the used address, and by the page\'s',
    async () => {
      const stranger = await browser.open(await browser.newContext());
      for (const address of [server.address,
        await page.evaluate('location.href')]) {
        await stranger.goto(address);
        await stranger.until('document.querySelector("h1")', 'an answer');
        assert.equal(await stranger.text('h1'),
          'This preview is not open to you');
      }
      await stranger.close();
    });

  test('nothing was refused by the page\'s own rules', () => {
    assert.deepEqual(page.complaints, []);
  });

  test('the end is a banner over the last pictures', async () => {
    await capture.stop();
    await server.close(await capture.ended);
    await page.until('document.querySelector(".banner")', 'the banner');
    assert.equal(await page.text('.banner strong'),
      'The capture was stopped.');
    assert.match(await page.text('.banner'), howToStartAgain);
    assert.equal(await isShown(page, '.banner button'), false);
    assert.equal(await page.text('#state'), 'Ended');
    assert.equal(await page.evaluate('keyframe.disabled'), true);
    assert.deepEqual(await liveFigures(page), ['–']);
    assert.ok(await figure(page, 0, 'keyframes') > 0);
    await page.close();
    server = null;
  });
});

describe('the page of a capture that a test controls', () => {
  let capture;
  let server;
  let page;
  before(async () => {
    capture = new FakeCapture({ isHardware: true });
    server = await PreviewServer.listen();
    server.show(capture);
    page = await browser.open();
    await page.goto(server.address);
    await page.until('document.querySelector("#state")?.textContent === "Live"',
      'the greeting');
  });
  after(async () => {
    capture.end();
    await server.close();
    await page?.close();
  });

  test('a press of the button is one wish for a keyframe', async () => {
    const before = capture.keyframesAsked;
    await page.click('#keyframe');
    await until(() => capture.keyframesAsked === before + 1, 'the wish');
  });

  test('the slider sets the bitrate of a hardware encoder', async () => {
    assert.equal(await page.text('#bitrate-value'), '4.0 Mbit/s');
    await page.evaluate('bitrate.focus()');
    await page.press('ArrowRight');
    await until(() => capture.bitratesAsked.length > 0, 'the new bitrate');
    assert.deepEqual(capture.bitratesAsked, [4_100_000]);
    assert.equal(await page.text('#bitrate-value'), '4.1 Mbit/s');
  });

  test('an error that ends nothing is a banner, once', async () => {
    for (let i = 0; i < 3; i += 1) {
      capture.events.emit('error',
        { message: 'the sound <b>is</b> gone', isFatal: false });
    }
    await page.until('document.querySelector(".banner")', 'the banner');
    assert.match(await page.text('.banner'), /the sound <b>is<\/b> gone/);
    assert.equal(
      await page.evaluate('document.querySelectorAll(".banner").length'), 1);
    assert.equal(await page.text('#state'), 'Live');
    await page.click('.banner button');
    await page.until('!document.querySelector(".banner")', 'no banner');
  });

  test('what the capture lives through stays in sight until it is over',
    async () => {
      const hidden = new session.CaptureError('ERR_CAPTURE_INTERRUPTED',
        'the window is hidden',
        { isFatal: false, nativeCode: 'window-hidden' });
      // A second time, while the end of the first is still to be read.
      for (let i = 0; i < 2; i += 1) {
        capture.events.emit('error', hidden);
        await page.until('document.querySelector(".banner.trouble")',
          'the banner');
        assert.match(await page.text('#banners'),
          /^The capture goes on, but …the window is hidden$/);
        assert.equal(await page.text('#state'), 'Interrupted');
        assert.equal(await isShown(page, '.banner button'), false);
        capture.events.emit('recovered',
          { error: hidden, message: 'the window can be read again' });
        await page.until('document.querySelector(".banner.recovery")',
          'the end of it');
        assert.match(await page.text('#banners'),
          /^The capture goes on:the window can be read again/);
        assert.equal(await page.text('#state'), 'Live');
      }
      await page.click('.banner button');
    });

  test('a picture that cannot be decoded is a banner and a wish', async () => {
    const before = capture.keyframesAsked;
    // The beginning of a stream, and then nothing of the kind.
    capture.send({ isKeyframe: true, data: Buffer.from(
      '0000000167' + '42c01f' + 'ff'.repeat(40) + '0000000165' +
      'ff'.repeat(40), 'hex') });
    await page.until('document.querySelector(".banner.error")', 'the banner');
    assert.match(await page.text('.banner'), /Branch 0 cannot be decoded/);
    await until(() => capture.keyframesAsked > before, 'the wish');
    await page.click('.banner button');
  });

  test('a failure is a banner that says what failed', async () => {
    capture.end();
    await server.close(
      { reason: 'error', error: new Error('video: broken'), detail: null });
    await page.until('document.querySelector(".banner.error")', 'the banner');
    assert.match(await page.text('.banner'), /met an error.*video: broken/);
    assert.equal(await page.text('#state'), 'Failed');
    server = await PreviewServer.listen();
  });
});

test('a page that loses its program says so', async () => {
  const capture = new FakeCapture();
  const server = await PreviewServer.listen();
  server.show(capture);
  const page = await browser.open();
  await page.goto(server.address);
  await page.until('document.querySelector("#state")?.textContent === "Live"',
    'the greeting');
  // Without a word about the capture.
  await server.close();
  await page.until('document.querySelector(".banner.error")', 'the banner');
  assert.match(await page.text('.banner'), /connection .* is gone/);
  assert.match(await page.text('.banner'), howToStartAgain);
  assert.deepEqual(await liveFigures(page), ['–']);
  assert.equal(await page.text('#state'), 'Lost');
  capture.end();
  await page.close();
});

/** One red picture of limited range, as a keyframe. */
async function redPicture() {
  const { stdout } = await run('ffmpeg', ['-v', 'error',
    '-f', 'lavfi', '-i', 'color=red:size=64x32', '-frames:v', '1',
    '-pix_fmt', 'yuv420p', '-color_range', 'tv', '-c:v', 'libx264',
    '-profile:v', 'baseline', '-tune', 'zerolatency', '-f', 'h264', '-'],
  { encoding: 'buffer' });
  return stdout;
}

test('the latency is the age of a picture when it is drawn', async () => {
  const data = await redPicture();
  const capture = new FakeCapture({ isHardware: true });
  const ageMs = 5000;
  const takenMs = Number(process.hrtime.bigint()) / 1e6 - ageMs;
  const server = await PreviewServer.listen();
  capture.clockOriginUs = takenMs * 1000;
  server.show(capture);
  const page = await browser.open();
  await page.goto(server.address);
  await until(() => capture.keyframesAsked > 0, 'the wish for a keyframe');
  capture.send({ isKeyframe: true, data });
  await page.until('document.querySelector(".latency").textContent !== "–"',
    'the latency');
  const latencyMs = await figure(page, 0, 'latency');
  const nowMs = Number(process.hrtime.bigint()) / 1e6;
  // Time stamps of a browser are rounded.
  assert.ok(latencyMs >= ageMs - 10 && latencyMs <= nowMs - takenMs + 10,
    `${latencyMs} ms, at most ${nowMs - takenMs}`);
  capture.end();
  await server.close();
  await page.close();
});

test('a browser that ignores the full range is found out', async () => {
  // What this one makes of limited range, others make of any.
  const limited = await redPicture();
  for (const isHardware of [false, true]) {
    const capture = new FakeCapture({ isHardware });
    const server = await PreviewServer.listen();
    server.show(capture);
    const page = await browser.open();
    await page.goto(server.address);
    await until(() => capture.keyframesAsked > 0, 'the wish for a keyframe');
    capture.send({ isKeyframe: true, data: limited });
    await waitForPictures(page, 1);
    // Nothing is known of the range that a hardware encoder chooses.
    assert.match(await page.text('#banners'),
      isHardware ? /^$/ : /colours are too strong/);
    capture.end();
    await server.close();
    await page.close();
  }
});

test('a page too many is told so, and not that all is over', async () => {
  const capture = new FakeCapture();
  const server = await PreviewServer.listen();
  server.show(capture);
  const entry = await enter(server.address);
  for (let i = 0; i < 8; i += 1) {
    const client = await connect(entry);
    await until(() => client.last('hello'), 'the greeting');
  }
  const page = await browser.open(await browser.newContext());
  const [name, value] = entry.cookie.split('=');
  await page.call('Network.setCookie', { name, value, url: entry.page });
  await page.goto(entry.page);
  await page.until('document.querySelector(".banner.error")', 'the banner');
  assert.match(await page.text('.banner'),
    /no place.*at most 8 pages may watch\. Close another one/);
  assert.doesNotMatch(await page.text('.banner'), howToStartAgain);
  capture.end();
  await server.close();
  await page.close();
});

describe('on a screen of any width', () => {
  let capture;
  let server;
  let page;
  before(async () => {
    capture = new FakeCapture({ branchCount: 3 });
    capture.branches = capture.branches.map((branch) =>
      ({ ...branch, width: 3840, height: 2160, fps: 120 }));
    capture.source = { type: 'window', id: 1,
      title: `A title ${'that goes on '.repeat(10)}${'x'.repeat(80)}` };
    server = await PreviewServer.listen();
    server.show(capture);
    page = await browser.open();
    await page.goto(server.address);
    await page.until('document.querySelector(".plot .values b")?.textContent',
      'the figures');
  });
  after(async () => {
    capture.end();
    await server.close();
    await page?.close();
  });

  for (const width of [320, 390, 768, 1280]) {
    test(`nothing is cut off or beyond the edge at ${width}`, async () => {
      await page.setSize(width, 800);
      const { scrollWidth, cut } = await page.evaluate(() => {
        // As long as figures get.
        for (const figure of document.querySelectorAll('b')) {
          figure.textContent = '1234.5';
        }
        const clips = (element) =>
          getComputedStyle(element).overflowX !== 'visible' &&
          !element.classList.contains('said') && element.clientWidth > 0;
        return {
          scrollWidth: document.documentElement.scrollWidth,
          cut: [...document.querySelectorAll('body *')]
            .filter((element) => clips(element) &&
              element.scrollWidth > element.clientWidth)
            .map((element) => element.textContent.trim()),
        };
      });
      assert.ok(scrollWidth <= width, `${scrollWidth} of ${width}`);
      // On a wide screen the title is one line, whole when pointed at.
      assert.deepEqual(cut.filter((text) => width < 1280 ||
        !text.startsWith('Window “A title')), []);
    });
  }
});
