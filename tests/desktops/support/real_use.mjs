import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { endHelper, startHelper } from '../../support/processes.mjs';

// What evdev calls it.
export const leftButton = 272;

const terminalWork = `i=0
end=$(($(date +%s) + $1))
while [ $(date +%s) -lt $end ]; do
  i=$((i + 1))
  printf '%d: the quick brown fox jumps over the lazy dog\\n' $i
  sleep 0.04
done
exec sleep infinity`;

const page = `<!doctype html><title>scrolling</title><body>
<script>
for (let i = 0; i < 400; i += 1) {
  const p = document.createElement('p');
  p.textContent = i + ' ' + 'Lorem ipsum dolor sit amet. '.repeat(6);
  p.style.background = 'hsl(' + i * 37 % 360 + ' 60% 85%)';
  document.body.append(p);
}
let y = 0;
const timer = setInterval(() => {
  if (performance.now() > 1000 * location.hash.slice(1)) clearInterval(timer);
  y = (y + 12) % 8000;
  scrollTo(0, y);
}, 33);
</script>`;

// Longer than any use of a desktop here.
const aDay = 86_400;

/** Starts a program with a folder of its own; returns what ends both. */
async function startWithFolder(desktop, command, argsIn) {
  const folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-use-'));
  const child = startHelper(command, await argsIn(folder),
    { ...desktop.options, stdio: 'ignore' });
  return async () => {
    await endHelper(child);
    await rm(folder, { recursive: true, force: true, maxRetries: 10 });
  };
}

/** A browser that scrolls for so long; its title is "scrolling". */
export function startBrowser(desktop, seconds = aDay) {
  return startWithFolder(desktop, 'chromium', async (folder) => {
    const file = path.join(folder, 'page.html');
    await writeFile(file, page);
    return [
      '--ozone-platform=wayland', '--disable-gpu', '--no-first-run',
      '--disable-dev-shm-usage', '--disable-background-networking',
      ...process.getuid() === 0 ? ['--no-sandbox'] : [],
      `--user-data-dir=${path.join(folder, 'profile')}`,
      '--window-size=480,300', `--app=file://${file}#${seconds}`,
    ];
  });
}

/** A terminal that prints for so long; its title is "printing". */
export function startTerminal(desktop, seconds = aDay) {
  return startWithFolder(desktop, 'sakura', async (folder) => {
    const file = path.join(folder, 'work.sh');
    await writeFile(file, terminalWork);
    return ['--title', 'printing', '--columns', '50', '--rows', '14',
      '--execute', `sh ${file} ${seconds}`];
  });
}

/** Moves the pointer step by step, as a hand does. */
export async function glide(cast, dx, dy, steps = 12) {
  for (let step = 0; step < steps; step += 1) {
    cast.command(`motion ${dx / steps} ${dy / steps}`);
    await sleep(30);
  }
}

/** Puts the pointer there, whatever it was. */
async function point(cast, x, y) {
  cast.command('motion -4000 -4000');
  await glide(cast, x, y, 6);
}

async function drag(cast, dx, dy) {
  cast.command(`button ${leftButton} 1`);
  await sleep(100);
  await glide(cast, dx, dy);
  cast.command(`button ${leftButton} 0`);
  await sleep(100);
}

/**
 * Uses a desktop for a while as a person does: a terminal that prints, a
 * browser that scrolls where asked for, a window that is made full, dragged by
 * the mouse, resized and minimised. `cast` is one with input.
 */
export async function useDesktop(desktop, cast,
  { seconds, withBrowser = false }) {
  const stops = [];
  try {
    stops.push(await startTerminal(desktop));
    if (withBrowser) stops.push(await startBrowser(desktop));
    const end = performance.now() + seconds * 1_000;
    const done = { moved: 0, sizes: 0, minimised: 0 };
    while (performance.now() < end) {
      // Large enough to be under the middle of the monitor wherever it is.
      const window = await desktop.startWindow({
        width: Math.round(desktop.size.width * 5 / 8),
        height: Math.round(desktop.size.height * 5 / 8),
        fps: 20,
        title: 'dragged',
      });
      window.command('fullscreen 1');
      await sleep(300);
      window.command('fullscreen 0');
      await sleep(200);
      await point(cast, desktop.size.width / 2, desktop.size.height / 2);
      for (const [dx, dy] of [[60, 40], [-90, -60], [30, 20]]) {
        await drag(cast, dx, dy);
      }
      for (const [width, height] of [[300, 170], [420, 200], [240, 136]]) {
        window.command(`size ${width} ${height}`);
        await sleep(150);
      }
      window.command('minimize');
      done.minimised += 1;
      await sleep(200);
      done.moved += window.output.text.match(/^moved$/gm)?.length ?? 0;
      done.sizes += window.output.text.match(/^shown /gm).length;
      await window.stop();
    }
    return done;
  } finally {
    for (const stop of stops.reverse()) await stop();
  }
}
