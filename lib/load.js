'use strict';

const { spawnSync } = require('node:child_process');
const fs = require('node:fs');

const {
  buildCommand, buildPhrase, bundledCause, bundledRemedy, isBundled, moduleFile,
} = require('./native_files.js');
const { familyOf, installSentence, packagesOfLibrary } =
  require('./system_packages.js');

const minimumNodeMajor = 20;
const minimumNodeApi = 8;

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
  if (isBundled()) return { cause: bundledCause, remedy: bundledRemedy };
  if (!fs.existsSync(file)) {
    return {
      cause: 'the file does not exist: the module has not been built',
      remedy: `Run ${buildPhrase()}.`,
    };
  }
  const architecture = readArchitecture(file);
  if (architecture === null) {
    return {
      cause: 'the file is not a shared library',
      remedy: `Remove it and run ${buildPhrase()}.`,
    };
  }
  if (architecture !== host.architecture) {
    return {
      cause: `the file is for ${architecture}, this process is ` +
        host.architecture,
      remedy: `Remove it and run ${buildPhrase()} with the Node.js that is ` +
        'to load the module.',
    };
  }
  return null;
}

// What the loaders of glibc and of musl say.
const missingLibraryMessages = [
  /^([^/\s:]+): cannot open shared object file/,
  /^Error loading shared library ([^/\s:]+):/,
];

/** Names of the libraries that are missing; the error names only the first. */
function missingLibraries(file, message) {
  const first = missingLibraryMessages
    .map((pattern) => pattern.exec(message)?.[1])
    .find((name) => name !== undefined);
  if (first === undefined) return [];
  const { stdout } = spawnSync('ldd', [file], { encoding: 'utf8' });
  const others = [...(stdout ?? '').matchAll(/^\s*(\S+) => not found$/gm)];
  return [...new Set([first, ...others.map(([, name]) => name)])];
}

function diagnoseLibraries(names, family) {
  const known = names.map(packagesOfLibrary);
  const unknown = names.filter((name, index) => known[index] === null);
  const wanted = known.filter((entry) => entry !== null);
  const sentences = [
    ...(wanted.length > 0 ? [installSentence(wanted, family)] : []),
    ...unknown.map((name) => `Install the package that brings ${name}.`),
  ];
  return {
    cause: names.length === 1 ? `the shared library ${names[0]} is missing`
      : `the shared libraries ${names.join(', ')} are missing`,
    remedy: `${sentences.join('\n    ')}\n    If this system has another ` +
      `version, build against that one: "${buildCommand()}".`,
  };
}

function diagnoseMessage(file, message, host) {
  const libraries = missingLibraries(file, message);
  if (libraries.length > 0) {
    return diagnoseLibraries(libraries, host.family);
  }
  if (/version `[^']+' not found|undefined symbol|symbol not found/
    .test(message)) {
    return {
      cause: 'the module was built against other library versions than ' +
        'those of this machine',
      remedy: `Build it here: ${buildPhrase()}.`,
    };
  }
  return null;
}

/**
 * Every cause that explains why `file` failed to load with `error`, each with
 * its remedy. `host` holds platform, architecture, nodeVersion, nodeApi and the
 * family of the system.
 */
function diagnose(file, error, host) {
  const reasons = diagnoseProcess(host);
  const reason = diagnoseFile(file, host) ??
    diagnoseMessage(file, error.message, host);
  if (reason !== null) {
    reasons.push(reason);
  }
  if (reasons.length === 0) {
    reasons.push({
      cause: error.message,
      remedy: `Run ${buildPhrase()}.`,
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
function loadNativeModule(file = moduleFile()) {
  try {
    return require(file);
  } catch (error) {
    throw composeLoadError(file, error, {
      platform: process.platform,
      architecture: process.arch,
      nodeVersion: process.versions.node,
      nodeApi: process.versions.napi,
      family: familyOf(),
    });
  }
}

module.exports = { composeLoadError, loadNativeModule };
