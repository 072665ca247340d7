import { existsSync, readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import process from 'node:process';

import loader from '../load.js';
import nativeFiles from '../native_files.js';
import session from '../session/index.js';
import systemPackages from '../system_packages.js';
import visible from '../visible_text.js';

const { visibleText } = visible;
const require = createRequire(import.meta.url);

const trialSize = 64;
const trialLimitMs = 20_000;

const good = (id, title, detail) =>
  ({ id, title, isUsable: true, detail, remedy: null, packages: [] });

const bad = (id, title, detail, remedy = null, packages = []) =>
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
export async function checkX11({ hasPlugins }) {
  const title = 'Pictures of X11';
  if (!hasPlugins) return bad('x11', title, 'the plugins for it are missing');
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
export function checkHardware(
  reports = require('../../index.js').getStats().providerProbeReport) {
  const title = 'Hardware encoder';
  const usable = reports.find((entry) => entry.selectableForSimulcastFps);
  if (usable !== undefined) {
    return good('encoder-hardware', title, `${usable.encoder} can be used`);
  }
  const present = reports.filter(({ available }) => available);
  return bad('encoder-hardware', title, present.length === 0
    ? 'none is installed'
    : present.map(({ rejectionReason }) => rejectionReason).join('; '),
  'The software encoder is used. A hardware encoder has to be one of ' +
    'NVIDIA\'s; docs/hardware.md tells what it needs.');
}

const isProgramThere = (name) => existsSync(path.join(
  process.env.LINUX_CAPTURE_PROGRAMS || nativeFiles.nativeFolder(name), name));

// What a build goes without when these development files were not there, and
// what in it tells so: the name of a library that is loaded when it is needed,
// and a program.
const optionalParts = [
  {
    modules: ['libpipewire-0.3'],
    isThere: () => readFileSync(
      loader.loadedModuleFile() ?? nativeFiles.moduleFiles()[0])
      .includes('libpipewire-0.3.so'),
    able: 'tells of PipeWire sources that are missing or lost',
    without: 'a PipeWire source that is missing or lost is not told',
  },
  {
    modules: ['libpipewire-0.3', 'xrandr'],
    isThere: () => isProgramThere('linux-capture-targets'),
    able: 'finds monitors, windows and applications by name',
    without: 'monitors, windows and applications cannot be found by name',
  },
  {
    modules: ['nice', 'openssl', 'libsrtp2', 'opus'],
    isThere: () => ['linux-capture-transport', 'linux-capture-opus']
      .every(isProgramThere),
    able: 'publishes to conference servers',
    without: 'nothing can be published to a conference server',
  },
];

const listText = (words) => new Intl.ListFormat('en').format(words);

/** Whether the module and its programs were built with everything. */
export function checkBuild(parts = optionalParts) {
  const title = 'Build';
  const missing = parts.filter(({ isThere }) => !isThere());
  if (missing.length === 0) {
    return good('build', title,
      `nothing was left out: it ${listText(parts.map(({ able }) => able))}`);
  }
  const wanted = [...new Set(missing.flatMap(({ modules }) => modules))]
    .map((name) => systemPackages.packagesOfModule(name));
  return {
    ...bad('build', title, `it was made without the development files of ${
      systemPackages.packageNames(wanted).join(' and ')}: ${
      missing.map(({ without }) => without).join('; ')}`,
    `${systemPackages.installSentence(wanted)}, then run ${
      nativeFiles.buildPhrase()}.`, systemPackages.packageNames(wanted)),
  };
}
