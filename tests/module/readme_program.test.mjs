import assert from 'node:assert/strict';
import { once } from 'node:events';
import { mkdir, mkdtemp, readFile, rm, symlink, writeFile } from
  'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { repositoryRoot } from '../support/addon.mjs';
import { probeFile } from '../support/command.mjs';
import { collectText, startHelper } from '../support/processes.mjs';
import { useFlashingDesktop } from '../support/recording.mjs';
import { startScene } from '../support/scene.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const root = fileURLToPath(repositoryRoot);

// It has a desktop that shares its screen in the environment.
useFlashingDesktop();

let folder;
let xvfb;
let scene;
before(async () => {
  folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-test-'));
  // As npm would have installed it.
  await mkdir(path.join(folder, 'node_modules'));
  await symlink(root, path.join(folder, 'node_modules/linux-capture-addon'));
  const readme = await readFile(path.join(root, 'README.md'), 'utf8');
  const [, program] = /^```js\n(\/\/ save\.mjs[\s\S]*?)^```$/m.exec(readme);
  await writeFile(path.join(folder, 'save.mjs'), program);
  xvfb = await startXvfb();
  scene = await startScene({ display: xvfb.display, fps: 30 });
});
after(async () => {
  await scene?.stop();
  await xvfb?.stop();
  await rm(folder, { recursive: true, force: true });
});

/** Runs the program as it stands; it has to end by itself. */
async function runProgram(environment) {
  const child = startHelper(process.execPath, ['save.mjs'], {
    cwd: folder, stdio: ['ignore', 'ignore', 'pipe'],
    env: { ...process.env, ...environment },
  });
  const errors = collectText(child.stderr);
  const [status] = await once(child, 'close');
  assert.equal(status, 0, errors.text);
  const { video, complaints } =
    await probeFile(path.join(folder, 'screen.h264'));
  assert.equal(complaints, '');
  return { ...video[0], pictures: Number(video[0].nb_read_packets) };
}

test('the program of the README runs on X11, and ends', async () => {
  const { width, height, pictures } = await runProgram(
    { DISPLAY: xvfb.display, WAYLAND_DISPLAY: '' });
  assert.deepEqual([width, height], [640, 360]);
  assert.ok(pictures > 30, `${pictures} pictures`);
});

test('the program of the README runs on Wayland, and ends', async () => {
  const { width, height, pictures } = await runProgram(
    { DISPLAY: '', WAYLAND_DISPLAY: 'wayland-0' });
  assert.deepEqual([width, height], [160, 90]);
  assert.ok(pictures > 30, `${pictures} pictures`);
});
