'use strict';

const fs = require('node:fs');
const path = require('node:path');

const moduleFile = path.join(
  __dirname, '..', 'build', 'release', 'linux_capture_addon.node');

const minimumNodeMajor = 20;
const minimumNodeApi = 8;

// The start of a shared library's file name, and the Debian package that
// brings it. The first match counts.
const libraryPackages = [
  ['libgstreamer-1.0.', 'libgstreamer1.0-0'],
  ['libgst', 'libgstreamer-plugins-base1.0-0'],
  ['libopenh264.', 'libopenh264-7 (libopenh264-dev brings the right one)'],
  ['libX11.', 'libx11-6'],
  ['libgobject-2.0.', 'libglib2.0-0'],
  ['libglib-2.0.', 'libglib2.0-0'],
  ['libstdc++.', 'libstdc++6'],
];

// e_machine values of the ELF header and Node's names for them.
const machineNames = new Map([
  [3, 'ia32'],
  [40, 'arm'],
  [62, 'x64'],
  [183, 'arm64'],
  [243, 'riscv64'],
]);

/** Architecture of an ELF file in Node's terms; null when it is no ELF file. */
function readArchitecture(file) {
  const header = Buffer.alloc(20);
  const descriptor = fs.openSync(file, 'r');
  try {
    const length = fs.readSync(descriptor, header, 0, header.length, 0);
    if (length < header.length ||
        header.toString('latin1', 0, 4) !== '\x7fELF') {
      return null;
    }
  } finally {
    fs.closeSync(descriptor);
  }
  const littleEndian = header[5] === 1;
  const machine =
    littleEndian ? header.readUInt16LE(18) : header.readUInt16BE(18);
  return machineNames.get(machine) ?? `machine ${machine}`;
}

function diagnoseProcess(host) {
  const reasons = [];
  if (host.platform !== 'linux') {
    reasons.push({
      cause: `this is ${host.platform}`,
      remedy: 'Use the module on Linux; it captures nothing elsewhere.',
    });
  }
  const major = Number.parseInt(host.nodeVersion, 10);
  if (major < minimumNodeMajor || Number(host.nodeApi) < minimumNodeApi) {
    reasons.push({
      cause: `Node.js ${host.nodeVersion} with Node-API ${host.nodeApi} is ` +
        'too old',
      remedy: `Use Node.js ${minimumNodeMajor} or later.`,
    });
  }
  return reasons;
}

function diagnoseFile(file, host) {
  if (!fs.existsSync(file)) {
    return {
      cause: 'the file does not exist: the module has not been built',
      remedy: 'Run "npm run build" in the folder of the package.',
    };
  }
  const architecture = readArchitecture(file);
  if (architecture === null) {
    return {
      cause: 'the file is not a shared library',
      remedy: 'Remove the "build" folder and run "npm run build".',
    };
  }
  if (architecture !== host.architecture) {
    return {
      cause: `the file is for ${architecture}, this process is ` +
        host.architecture,
      remedy: 'Remove the "build" folder and run "npm run build" with the ' +
        'Node.js that is to load the module.',
    };
  }
  return null;
}

function diagnoseMessage(message) {
  const library =
    /^(\S+): cannot open shared object file/.exec(message)?.[1];
  if (library !== undefined && !path.isAbsolute(library)) {
    const known = libraryPackages.find(([start]) => library.startsWith(start));
    return {
      cause: `the shared library ${library} is missing`,
      remedy: known === undefined ?
        `Install the package that brings ${library}.` :
        `Install it (Debian package ${known[1]}). If another version of it ` +
          'is installed, run "npm run build" again to build against that one.',
    };
  }
  if (/version `[^']+' not found|undefined symbol/.test(message)) {
    return {
      cause: 'the module was built against other library versions than ' +
        'those of this machine',
      remedy: 'Remove the "build" folder and run "npm run build" here.',
    };
  }
  return null;
}

/**
 * Every cause that explains why `file` failed to load with `error`, each with
 * its remedy. `host` holds platform, architecture, nodeVersion and nodeApi.
 */
function diagnose(file, error, host) {
  const reasons = diagnoseProcess(host);
  const reason = diagnoseFile(file, host) ?? diagnoseMessage(error.message);
  if (reason !== null) {
    reasons.push(reason);
  }
  if (reasons.length === 0) {
    reasons.push({
      cause: error.message,
      remedy: 'Run "npm run build"; if that does not help, remove the ' +
        '"build" folder first.',
    });
  }
  return reasons;
}

function composeLoadError(file, error, host) {
  const lines = [`linux_capture_addon could not be loaded from ${file}`];
  for (const { cause, remedy } of diagnose(file, error, host)) {
    lines.push(`  - ${cause}`, `    ${remedy}`);
  }
  const loadError = new Error(lines.join('\n'), { cause: error });
  loadError.code = 'ERR_LINUX_CAPTURE_ADDON_LOAD';
  return loadError;
}

/** The native module's exports object; throws one error that says what to do. */
function loadNativeModule(file = moduleFile) {
  try {
    return require(file);
  } catch (error) {
    throw composeLoadError(file, error, {
      platform: process.platform,
      architecture: process.arch,
      nodeVersion: process.versions.node,
      nodeApi: process.versions.napi,
    });
  }
}

module.exports = { composeLoadError, loadNativeModule };
