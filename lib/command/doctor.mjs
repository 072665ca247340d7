import { createRequire } from 'node:module';
import process from 'node:process';

import {
  checkHardware, checkModule, checkPipeWire, checkSoftware, checkX11,
} from './doctor_checks.mjs';
import { checkElements } from './doctor_elements.mjs';
import { checkPortal } from './doctor_portal.mjs';
import { parseOptions } from './option_values.mjs';

export const parse = (args) =>
  parseOptions(args, { json: { type: 'boolean' } }).values;

/** The whole report. Nothing is asked of the user for it. */
async function examine(environment = process.env) {
  const { version } = createRequire(import.meta.url)('../../package.json');
  const nativeModule = checkModule();
  const checks = [
    nativeModule,
    checkElements('pictures', 'GStreamer for pictures', environment),
    checkElements('x11', 'GStreamer for X11', environment),
    checkElements('pipewire', 'GStreamer for PipeWire', environment),
    checkElements('sound', 'GStreamer for sound', environment),
    await checkPipeWire(),
    await checkPortal(),
  ];
  if (nativeModule.isUsable) {
    checks.push(await checkX11(), checkSoftware(), checkHardware());
  }
  const can = (...ids) =>
    ids.every((id) => checks.find((check) => check.id === id)?.isUsable);
  const canPicture = can('module', 'elements-pictures');
  const usable = {
    // Tried out, with all that it takes.
    x11: can('x11'),
    portal: canPicture && can('elements-pipewire', 'pipewire', 'portal'),
    sound: can('module', 'elements-sound', 'elements-pipewire', 'pipewire'),
    hardware: can('encoder-hardware'),
  };
  return {
    version,
    node: process.versions.node,
    canCapture: usable.x11 || usable.portal,
    usable,
    checks,
  };
}

function reportText({ version, node, canCapture, checks }) {
  const lines = [`linux-capture ${version}, Node.js ${node}`, ''];
  for (const { title, isUsable, detail, remedy } of checks) {
    lines.push(`${isUsable ? 'ok ' : 'no '} ${title}: ${detail}`);
    if (remedy !== null) lines.push(`      ${remedy}`);
  }
  lines.push('', canCapture ? 'A capture is possible.'
    : 'Nothing can be captured here.');
  return lines.join('\n');
}

export async function run({ json }) {
  const report = await examine();
  process.stdout.write(
    `${json ? JSON.stringify(report, null, 2) : reportText(report)}\n`);
  return report.canCapture ? 0 : 1;
}
