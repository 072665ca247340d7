import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import { mkdir, mkdtemp, readFile, rm, symlink, writeFile } from
  'node:fs/promises';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { repositoryRoot } from '../support/addon.mjs';
import { startBrowser } from '../support/chromium.mjs';
import { useDisplay } from '../support/display.mjs';
import { waitForColours, waitForMotion } from '../support/preview_page.mjs';
import { collectText, endHelper, hasEnded, startHelper, waitForText } from
  '../support/processes.mjs';
import { enterOwnNetwork } from '../support/own_network.mjs';
import { openReceiver } from '../support/receiver_page.mjs';
import { until } from '../support/until.mjs';
import { openWhipDoor } from '../support/whip_door.mjs';

enterOwnNetwork();

const run = promisify(execFile);
const root = fileURLToPath(repositoryRoot);
const size = { width: 640, height: 360 };
const display = useDisplay({ ...size, scene: { fps: 30 } });

// An encoder that has few bits takes a few steps of a colour away.
const mostColourError = 6;

/** The programs of the guide by the names in their first lines. */
function programsOf(text) {
  const blocks =
    text.matchAll(/^```(?:js|html)\n(?:\/\/|<!--) (\w+\.\w+)[\s\S]*?^```$/gm);
  return new Map(Array.from(blocks, ([block, name]) =>
    [name, block.split('\n').slice(1, -1).join('\n')]));
}

let folder;
let browser;
before(async () => {
  folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-guide-'));
  // As npm would have installed them.
  await mkdir(path.join(folder, 'node_modules'));
  await symlink(root, path.join(folder, 'node_modules/linux-capture-addon'));
  await symlink(path.join(root, 'node_modules/ws'),
    path.join(folder, 'node_modules/ws'));
  const guide = await readFile(path.join(root, 'docs/guide.md'), 'utf8');
  for (const [name, code] of programsOf(guide)) {
    await writeFile(path.join(folder, name), code);
  }
  browser = await startBrowser();
});
after(async () => {
  await browser?.stop();
  await rm(folder, { recursive: true, force: true });
});

function start(...args) {
  const env = { ...process.env, DISPLAY: display.display };
  delete env.WAYLAND_DISPLAY;
  const child = startHelper(process.execPath, args,
    { cwd: folder, env, stdio: ['ignore', 'pipe', 'pipe'] });
  return { child, output: collectText(child.stdout),
    errors: collectText(child.stderr) };
}

async function freePort() {
  const server = createServer().listen(0, '127.0.0.1');
  await once(server, 'listening');
  const { port } = server.address();
  server.close();
  await once(server, 'close');
  return port;
}

test('the guide\'s packet on a screen has the colours of the screen, moves, ' +
  'and ends', async () => {
  const { child, output, errors } = start('show.mjs', String(await freePort()));
  try {
    const [address] = await waitForText(child, output, /http:\S+/,
      'the address', 30_000);
    const page = await browser.open();
    await page.goto(address);
    await page.until('document.querySelector("canvas")', 'the page');
    // Where the reader of pictures looks for them.
    await page.evaluate('void (document.body.dataset.branch = 0)');
    await waitForMotion(page, 0, 5);
    const error = await waitForColours(page, 0, mostColourError);
    assert.ok(error <= mostColourError, `${error} steps off`);
    assert.deepEqual(page.complaints, []);
    child.kill('SIGINT');
    await until(() => hasEnded(child), 'the end');
    assert.equal(child.exitCode, 0, errors.text);
    await page.close();
  } finally {
    await endHelper(child);
  }
});

test('the guide\'s packets in a file are a film', async () => {
  const { child, errors } = start('save.mjs');
  try {
    await until(() => hasEnded(child), 'the end', 30_000);
    assert.equal(child.exitCode, 0, errors.text);
  } finally {
    await endHelper(child);
  }
  const [, command] = /`(ffmpeg -framerate 30 [^`]+)`/.exec(
    await readFile(path.join(root, 'docs/guide.md'), 'utf8'));
  const [program, ...args] = command.split(/\s+/);
  await run(program, args, { cwd: folder });
  const { stdout } = await run('ffprobe', ['-v', 'error', '-count_frames',
    '-show_entries', 'stream=nb_read_frames,duration', '-of', 'json',
    path.join(folder, 'screen.mp4')]);
  const [{ nb_read_frames: frames, duration }] = JSON.parse(stdout).streams;
  // Five seconds of 30 a second at most, and at least something of each.
  assert.ok(frames > 5 && frames <= 151, `${frames} pictures`);
  assert.ok(Math.abs(Number(duration) - Number(frames) / 30) < 0.1,
    `${duration} s for ${frames} pictures`);
});

test('the guide\'s publication reaches a server', async () => {
  const receiver = await openReceiver(browser);
  const door = await openWhipDoor(receiver.answer);
  const { child, output } = start('publish.mjs', door.url);
  try {
    await until(() => /publishing 1 branch/.test(output.text), 'the start');
    await waitForMotion(receiver.page, 0, 3);
    child.kill('SIGINT');
    await until(() => hasEnded(child), 'the end');
    assert.equal(child.exitCode, 0);
    assert.equal(door.requests.at(-1).method, 'DELETE');
  } finally {
    await endHelper(child);
    await door.close();
  }
});

test('the guide\'s packets of RTP are a film', async () => {
  const { child, errors } = start('rtp.mjs', '45004');
  const description = path.join(folder, 'rtp.sdp');
  await until(() => existsSync(description), 'the description');
  const film = path.join(folder, 'rtp.mkv');
  const receiver = startHelper('ffmpeg', ['-v', 'error', '-protocol_whitelist',
    'file,udp,rtp', '-i', description, '-c', 'copy', '-t', '3', film],
  { stdio: ['ignore', 'ignore', 'pipe'] });
  const complaints = collectText(receiver.stderr);
  try {
    await until(() => hasEnded(child), 'the end');
    assert.equal(child.exitCode, 0, errors.text);
    await until(() => hasEnded(receiver), 'the film').catch(() => {});
  } finally {
    await endHelper(child);
    await endHelper(receiver);
  }
  const { stdout } = await run('ffprobe', ['-v', 'error', '-count_frames',
    '-show_entries', 'stream=codec_name,nb_read_frames', '-of', 'json', film]);
  const [{ codec_name: codec, nb_read_frames: frames }] =
    JSON.parse(stdout).streams;
  assert.equal(codec, 'h264', complaints.text);
  assert.ok(frames > 5, `${frames} pictures`);
});
