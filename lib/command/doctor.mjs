import { createRequire } from 'node:module';
import process from 'node:process';

import systemPackages from '../system_packages.js';
import {
  checkBuild, checkHardware, checkModule, checkPipeWire, checkSoftware, checkX11,
} from './doctor_checks.mjs';
import { checkElements } from './doctor_elements.mjs';
import { checkPortal } from './doctor_portal.mjs';
import { parseOptions } from './option_values.mjs';

const { installSentence } = systemPackages;

export const parse = (args) =>
  parseOptions(args, { json: { type: 'boolean' } }).values;

/** The whole report. Nothing is asked of the user for it. */
async function examine(environment = process.env) {
  const { version } = createRequire(import.meta.url)('../../package.json');
  const nativeModule = checkModule();
  const checks = [
    nativeModule,
    checkElements('pictures', 'Plugins for pictures', environment),
    checkElements('x11', 'Plugins for X11', environment),
    checkElements('pipewire', 'Plugins for PipeWire', environment),
    checkElements('sound', 'Plugins for sound', environment),
    await checkPipeWire(),
    await checkPortal(),
  ];
  const can = (...ids) =>
    ids.every((id) => checks.find((check) => check.id === id)?.isUsable);
  if (nativeModule.isUsable) {
    const hasPlugins = can('elements-pictures', 'elements-x11');
    checks.push(checkBuild(), await checkX11({ hasPlugins }), checkSoftware(),
      checkHardware());
  }
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

/** A sentence of what was told in the middle of one. */
const sentence = (text) =>
  `${text.replace(/^[a-z]+(?=[ ,])/, (word) =>
    `${word[0].toUpperCase()}${word.slice(1)}`)}${
    /[.:!?]$|\n/.test(text) ? '' : '.'}`;

const indented = (text) => text.replace(/^/gm, '      ');

function conclusion({ canCapture, usable, checks }) {
  const names = [
    [usable.x11, 'X11 screens and windows'],
    [usable.portal, 'what the desktop shares'],
    [usable.sound, 'sound'],
  ];
  const listed = (wanted) => names.filter(([can]) => can === wanted)
    .map(([, name]) => name).join(', ');
  const lines = [canCapture ? `Can be captured: ${listed(true)}.${
    listed(false) === '' ? '' : ` Not: ${listed(false)}.`}`
    : 'Nothing can be captured here.'];
  const wanted = checks.flatMap((check) => check.wanted ?? []);
  if (wanted.length > 0) lines.push(installSentence(wanted));
  return lines;
}

function reportText(report) {
  const lines =
    [`linux-capture ${report.version}, Node.js ${report.node}`, ''];
  for (const { title, isUsable, detail, remedy, wanted } of report.checks) {
    lines.push(`${isUsable ? 'ok ' : 'no '} ${title}`,
      indented(sentence(detail)));
    // What is to be installed is put together at the end.
    if (remedy !== null && !wanted?.length) lines.push(indented(remedy));
  }
  return [...lines, '', ...conclusion(report)].join('\n');
}

const jsonText = (report) => JSON.stringify(report,
  (key, value) => (key === 'wanted' ? undefined : value), 2);

export async function run({ json }) {
  const report = await examine();
  process.stdout.write(`${json ? jsonText(report) : reportText(report)}\n`);
  return report.canCapture ? 0 : 1;
}
