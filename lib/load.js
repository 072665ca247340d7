'use strict';

const { spawnSync } = require('node:child_process');
const fs = require('node:fs');

const {
  buildCommand, buildPhrase, bundledCause, bundledRemedy, isBundled,
  moduleFiles,
} = require('./native_files.js');
const {
  familyOf, installSentence, namesOf, list, openh264Version, packagesOfLibrary,
} = require('./system_packages.js');

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

const foreignSymbols =
  /version `[^']+' not found|undefined symbol|symbol not found/;

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

/** How to get a module for another OpenH264 than the package brings one for. */
function buildRemedy(family) {
  return `This release has libopenh264.so.${openh264Version(family)} instead: ` +
    `build against it.\n    ${
      installSentence(list.purposes.build.map(namesOf), family)}\n    Then run ${
      buildPhrase()}.`;
}

function diagnoseLibraries(names, family) {
  const own = openh264Version(family);
  const isForeign = (name) => name.startsWith('libopenh264.so.') &&
    own !== null && name !== `libopenh264.so.${own}`;
  const known = names.filter((name) => !isForeign(name) &&
    packagesOfLibrary(name) !== null);
  const unknown = names.filter((name) => packagesOfLibrary(name) === null);
  const sentences = [
    ...(known.length > 0
      ? [installSentence(known.map(packagesOfLibrary), family)] : []),
    ...unknown.map((name) => `Install the package that brings ${name}.`),
    names.some(isForeign) ? buildRemedy(family)
      : 'If this system has another version, build against that one: ' +
        `"${buildCommand()}".`,
  ];
  return {
    cause: names.length === 1 ? `the shared library ${names[0]} is missing`
      : `the shared libraries ${names.join(', ')} are missing`,
    remedy: sentences.join('\n    '),
  };
}

function diagnoseMessage(file, message, host) {
  const libraries = missingLibraries(file, message);
  if (libraries.length > 0) {
    return diagnoseLibraries(libraries, host.family);
  }
  if (foreignSymbols.test(message)) {
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

// What another build of the module can do better. A module that was loaded and
// then refuses to start is not one of these.
const isUnfit = ({ message }) =>
  /invalid ELF header|file too short/.test(message) ||
  missingLibraryMessages.some((pattern) => pattern.test(message)) ||
  foreignSymbols.test(message);

/** Of files that did not load the one that lacks the least. */
function nearest(failures) {
  const lack = failures.map(({ file, error }) =>
    missingLibraries(file, error.message).length || Infinity);
  return failures[lack.indexOf(Math.min(...lack))];
}

let loadedFile = null;

/** The file that the module was loaded from; null before that. */
const loadedModuleFile = () => loadedFile;

/**
 * The native module's exports object, of the first of the files that fits;
 * throws one error that says what to do.
 */
function loadNativeModule(...files) {
  const failures = [];
  for (const file of files.length > 0 ? files : moduleFiles()) {
    try {
      const exported = require(file);
      loadedFile = file;
      return exported;
    } catch (error) {
      failures.push({ file, error });
      if (!isUnfit(error)) break;
    }
  }
  const { file, error } =
    isUnfit(failures.at(-1).error) ? nearest(failures) : failures.at(-1);
  throw composeLoadError(file, error, {
    platform: process.platform,
    architecture: process.arch,
    nodeVersion: process.versions.node,
    nodeApi: process.versions.napi,
    family: familyOf(),
  });
}

module.exports = { composeLoadError, loadNativeModule, loadedModuleFile };
