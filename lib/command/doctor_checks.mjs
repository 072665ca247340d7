import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import process from 'node:process';

import session from '../session/index.js';
import visible from '../visible_text.js';

const { visibleText } = visible;
const require = createRequire(import.meta.url);

const trialSize = 64;
const trialLimitMs = 20_000;

const good = (id, title, detail) =>
  ({ id, title, isUsable: true, detail, remedy: null, packages: [] });

const bad = (id, title, detail, remedy, packages = []) =>
  ({ id, title, isUsable: false, detail, remedy, packages });

// The files behind a library's names carry its whole version.
const libraries = [
  ['GStreamer', /\/libgstreamer-1\.0\.so\.0\.(\d+)\.\d+$/m,
    (minor) => `1.${Math.floor(minor / 100)}.${minor % 100}`],
  ['OpenH264', /\/libopenh264\.so\.([\d.]+)$/m, (version) => version],
];

/** Which libraries this process has loaded, by name and version. */
function librariesText() {
  const maps = readFileSync('/proc/self/maps', 'utf8');
  return libraries.map(([name, pattern, describe]) => {
    const match = pattern.exec(maps);
    return match === null ? name : `${name} ${describe(match[1])}`;
  }).join(' and ');
}

export function checkModule() {
  const title = 'Native module';
  try {
    require('../../index.js');
    return good('module', title, `loaded, with ${librariesText()}`);
  } catch (error) {
    // It brings its own remedies.
    return bad('module', title, error.message, null);
  }
}

/** Takes one picture off the X11 screen, with everything that takes. */
export async function checkX11() {
  const title = 'Pictures of X11';
  const name = process.env.DISPLAY;
  if (!name) {
    return bad('x11', title, 'DISPLAY is not set',
      'Run it in an X11 session, or record with --portal.');
  }
  try {
    const capture = await session.startCapture({
      source: {
        type: 'monitor',
        geometry: { width: trialSize, height: trialSize },
      },
    });
    const timer = setTimeout(() => capture.stop(), trialLimitMs);
    const { done } = await capture.video().next();
    clearTimeout(timer);
    const { encoder } = capture.stats();
    await capture.stop();
    return done ? bad('x11', title, `no picture came from ${name}`,
      'Check that the display is this user\'s own.')
      : good('x11', title, `took a picture of ${name} with ${encoder.name}`);
  } catch (error) {
    return bad('x11', title, error.message,
      'Check that DISPLAY names a display that this user may open.');
  }
}

export async function checkPipeWire() {
  const title = 'PipeWire';
  const remedy = 'In a desktop session, install and start pipewire and ' +
    'wireplumber.';
  const packages = ['pipewire', 'wireplumber'];
  try {
    const { system, problems } =
      await session.listTargets({ only: 'pipewire' });
    if (system === null) {
      return bad('pipewire', title, problems[0]?.message ?? 'cannot be asked',
        remedy, packages);
    }
    const sink = system.find(({ isDefault }) => isDefault) ?? system[0];
    return good('pipewire', title, sink === undefined
      ? 'there is no output for sound' : `sound is heard at ${visibleText(sink.name)}`);
  } catch (error) {
    return bad('pipewire', title, error.message, null);
  }
}

/** It is part of what the module is linked with. */
export function checkSoftware() {
  return good('encoder-software', 'Software encoder', 'OpenH264 can be used');
}

/** What the module found out about hardware encoders when it was loaded. */
export function checkHardware() {
  const title = 'Hardware encoder';
  const reports = require('../../index.js').getStats().providerProbeReport;
  const usable = reports.find((entry) => entry.selectableForSimulcastFps);
  return usable !== undefined
    ? good('encoder-hardware', title, `${usable.encoder} can be used`)
    : bad('encoder-hardware', title,
      reports.map(({ rejectionReason }) => rejectionReason).join('; ') ||
        'none is known',
      'The software encoder is used; docs/hardware.md tells what another ' +
        'needs.');
}
