import assert from 'node:assert/strict';
import { once } from 'node:events';
import { chmod, mkdtemp, readFile, rm, writeFile } from 'node:fs/promises';
import { createServer } from 'node:http';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, afterEach, before, beforeEach, describe, test } from
  'node:test';
import { fileURLToPath } from 'node:url';
import { startBrowser } from '../support/chromium.mjs';
import { repositoryRoot } from '../support/addon.mjs';
import { request } from '../support/preview_client.mjs';
import { waitForMotion, waitForPictures } from '../support/preview_page.mjs';
import { collectText, endHelper, hasEnded, startHelper, waitForText } from
  '../support/processes.mjs';
import { connectRaw, rawRequest, upgradeHeaders } from
  '../support/raw_connection.mjs';
import { startScene } from '../support/scene.mjs';
import { until } from '../support/until.mjs';
import { desktopOf } from '../support/x_tools.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const size = { width: 320, height: 180 };
const command =
  fileURLToPath(new URL('bin/linux-capture.mjs', repositoryRoot));

describe('linux-capture preview', () => {
  let browser;
  let folder;
  let xvfb;
  let scene;
  before(async () => {
    browser = await startBrowser();
  });
  after(() => browser?.stop());
  beforeEach(async () => {
    xvfb = await startXvfb(size);
    scene = await startScene({ ...size, fps: 30, display: xvfb.display });
    folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-programs-'));
  });
  afterEach(async () => {
    await scene?.stop();
    await xvfb?.stop();
    await rm(folder, { recursive: true, force: true });
  });

  async function program(name, text) {
    await writeFile(path.join(folder, name), `#!/bin/sh\n${text}\n`);
    await chmod(path.join(folder, name), 0o755);
  }

  const start = (...args) => startIn({}, '--monitor', ...args);

  function startIn(environment, ...args) {
    const env = {
      ...process.env,
      DISPLAY: xvfb.display,
      PATH: `${folder}:${process.env.PATH}`,
      XDG_RUNTIME_DIR: folder,
      ...environment,
    };
    delete env.WAYLAND_DISPLAY;
    const child = startHelper(process.execPath,
      [command, 'preview', ...args],
      { env, stdio: ['ignore', 'pipe', 'pipe'] });
    const output = collectText(child.stdout);
    const errors = collectText(child.stderr);
    return {
      child,
      output,
      errors,
      address: async () => (await waitForText(child, output,
        /(http:\S+)\n/, 'the address', 30_000))[1],
      async status() {
        await until(() => hasEnded(child), 'the end', 20_000);
        return child.exitCode;
      },
    };
  }

  test('shows the screen, and ends with status 0 on Ctrl-C', async () => {
    const run = start('--branch', '160@15');
    const page = await browser.open();
    await page.goto(await run.address());
    await waitForPictures(page, 2);
    await waitForMotion(page, 0, 3);
    assert.equal(await page.text('#source'), 'Monitor screen');
    run.child.kill('SIGINT');
    assert.equal(await run.status(), 0, run.errors.text);
    await page.until('document.querySelector(".banner")', 'the banner');
    assert.equal(await page.text('#state'), 'Ended');
    assert.equal(run.errors.text, '');
    await page.close();
  });

  test('lives through what any local user can send, and ends all the same',
    async () => {
      const run = start();
      const address = await run.address();
      for (const target of ['//', '/\\', '//[', 'http://[']) {
        const { socket } = await connectRaw(address);
        socket.end(rawRequest(address, target));
        await once(socket, 'close');
      }
      const refused = await connectRaw(address);
      refused.socket.write(
        rawRequest(address, '/', { headers: upgradeHeaders }));
      await until(() => refused.hasEnd, 'the refusal');
      assert.equal((await request(address)).status, 200);
      run.child.kill('SIGINT');
      assert.equal(await run.status(), 0, run.errors.text);
      assert.equal(run.errors.text, '');
      refused.socket.destroy();
    });

  test('goes on when its window is hidden, and says so', async () => {
    const window = await startScene({
      display: xvfb.display, width: 160, height: 90, x: 9, y: 9, fps: 30,
    });
    const desktop = desktopOf(xvfb.display);
    const run = startIn({}, '--window', String(window.window));
    try {
      const page = await browser.open();
      await page.goto(await run.address());
      await waitForPictures(page, 1);
      await desktop.hide(window.window);
      await page.until('document.querySelector(".banner.trouble")',
        'the trouble');
      assert.match(await page.text('.banner'), /window is hidden/);
      await desktop.show(window.window);
      await page.until('document.querySelector(".banner.recovery")',
        'its end');
      assert.equal(await page.text('#state'), 'Live');
      await waitForMotion(page, 0, 3);
      run.child.kill('SIGINT');
      assert.equal(await run.status(), 0);
      assert.match(run.errors.text,
        /^linux-capture: .*hidden.*\nlinux-capture: .*read again\n$/);
      await page.close();
    } finally {
      await endHelper(run.child);
      await window.stop();
    }
  });

  test('tells the page why, when the display goes away', async () => {
    const run = start();
    const page = await browser.open();
    await page.goto(await run.address());
    await waitForPictures(page, 1);
    await xvfb.kill();
    assert.equal(await run.status(), 1);
    await page.until('document.querySelector(".banner.error")', 'the banner');
    assert.equal(await page.text('#state'), 'Failed');
    assert.match(await page.text('.banner'), /met an error.*video: /);
    assert.match(run.errors.text, /^linux-capture: video: /m);
    await page.close();
  });

  test('a port that is in use is named, before anything is chosen',
    async () => {
      const server = createServer().listen(0, '127.0.0.1');
      await once(server, 'listening');
      const { port } = server.address();
      const run = start('--port', String(port));
      assert.equal(await run.status(), 1);
      assert.match(run.errors.text, new RegExp(`the port ${port} is in use`));
      server.close();
    });

  test('--open opens the address without telling it to other users',
    async () => {
      await program('xdg-open', `
        stat --format %a "$1" >"$0.mode"
        printf '%s' "$1" >"$0.name"
        cat "$1" >"$0.seen"`);
      const run = start('--open');
      const address = await run.address();
      const seen = (what) =>
        readFile(path.join(folder, `xdg-open.${what}`), 'utf8')
          .catch(() => '');
      await until(async () => (await seen('seen')).includes('</html>'),
        'the browser to be opened');
      assert.doesNotMatch(await seen('name'), /token|http/);
      assert.equal((await seen('mode')).trim(), '600');
      assert.ok((await seen('seen')).includes(`url=${address}"`));
      assert.equal((await request(address)).status, 200);
      run.child.kill('SIGINT');
      assert.equal(await run.status(), 0);
      await assert.rejects(readFile(await seen('name')), { code: 'ENOENT' });
    });

  test('says so when no browser can be opened, and goes on', async () => {
    await program('xdg-open', 'exit 3');
    const run = start('--open');
    const address = await run.address();
    await waitForText(run.child, run.errors,
      /no browser was opened: xdg-open ended with status 3/, 'the message');
    assert.equal((await request(address)).status, 200);
    await endHelper(run.child, 'SIGINT');
  });

  test('says so when the way to the browser cannot be written, and goes on',
    async () => {
      const run = startIn({ XDG_RUNTIME_DIR: path.join(folder, 'none') },
        '--monitor', '--open');
      const address = await run.address();
      await waitForText(run.child, run.errors,
        /no browser was opened: ENOENT/, 'the message');
      assert.equal((await request(address)).status, 200);
      run.child.kill('SIGINT');
      assert.equal(await run.status(), 0);
    });
});
