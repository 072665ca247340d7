// A minute of windows of KDE in use, in figures: a browser that scrolls and a
// terminal that prints, half of the time each.
//
//   node tests/desktops/support/measure_window_use.mjs [--seconds 60]
import { parseArgs } from 'node:util';
import { enterDesktop } from './cast_capture.mjs';
import { startKwin } from './kwin.mjs';
import { startBrowser, startTerminal } from './real_use.mjs';
import { recordWindowUse } from './recorded_window_use.mjs';

const { values } = parseArgs(
  { options: { seconds: { type: 'string', default: '60' } } });
const seconds = Number(values.seconds) / 2;
for (const [title, start] of [
  ['scrolling', startBrowser], ['printing', startTerminal],
]) {
  const desktop = await startKwin({ width: 640, height: 360 });
  const outside = { ...process.env };
  enterDesktop(desktop);
  // It starts meanwhile.
  const stop = await start(desktop, seconds);
  try {
    console.log(title, await recordWindowUse(desktop, { title, seconds }));
  } finally {
    await stop();
    await desktop.stop();
    Object.assign(process.env, outside);
  }
}
