// A minute of a desktop in use, in figures.
//
//   node tests/desktops/support/measure_use.mjs [--seconds 60]
import { parseArgs } from 'node:util';
import { enterDesktop } from './cast_capture.mjs';
import { startMutter } from './mutter.mjs';
import { recordUse } from './recorded_use.mjs';

const { values: { seconds } } = parseArgs(
  { options: { seconds: { type: 'string', default: '60' } } });
const desktop = await startMutter();
enterDesktop(desktop);
try {
  console.log(await recordUse(desktop,
    { seconds: Number(seconds), withBrowser: true }));
} finally {
  await desktop.stop();
}
