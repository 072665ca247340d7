'use strict';

const fs = require('node:fs');
const path = require('node:path');
const process = require('node:process');

const { openh264Version } = require('./system_packages.js');

// Some bundlers leave nothing that says where a file lies.
const ownFolder = typeof __dirname === 'string' ? __dirname : null;
const packageFolder = path.join(ownFolder ?? process.cwd(), '..');
const packageName = 'linux-capture-addon';
const moduleName = 'linux_capture_addon.node';

/** What a build on this machine made, and what the package brought along. */
const builtFolder = path.join(packageFolder, 'build', 'release');
const prebuiltFolder =
  path.join(packageFolder, 'prebuilds', `linux-${process.arch}`);

// Electron unpacks native files beside its archive. It starts no program from
// the archive itself, and without it nothing could be read from there.
const unpacked = (folder) =>
  folder.replace(/(\.asar)(?=[\\/])/, '$1.unpacked');

function isIn(folder, name) {
  return fs.existsSync(path.join(folder, name));
}

/** Where it is outside of an archive; a folder may be called like one. */
const outsideArchive = (folder, name) =>
  (isIn(unpacked(folder), name) ? unpacked(folder) : folder);

/**
 * The folder that has a program of this name. What was built on this machine
 * fits it best and comes first; without either this is where a build would put
 * it.
 */
function nativeFolder(name) {
  const folders = [builtFolder, prebuiltFolder]
    .map((folder) => outsideArchive(folder, name));
  return folders.find((folder) => isIn(folder, name)) ?? folders[0];
}

/** Nothing where there is no folder, or none that may be read. */
function namesIn(folder) {
  try {
    return fs.readdirSync(folder);
  } catch {
    return [];
  }
}

// The package brings a module for each version of OpenH264, in a folder called
// after it: "openh264-7".
function prebuiltVersions() {
  const names =
    new Set([prebuiltFolder, unpacked(prebuiltFolder)].flatMap(namesIn));
  const own = openh264Version();
  return [...names].map((name) => /^openh264-(\d+)$/.exec(name)?.[1])
    .filter((version) => version !== undefined)
    .map(Number)
    .sort((a, b) => (b === own) - (a === own) || b - a);
}

/**
 * The files of the module that may fit, the likeliest first: what was built
 * here, then what goes with the OpenH264 of this system's release. Without any
 * it is the one that a build would make.
 */
function moduleFiles() {
  const folders = [builtFolder, ...prebuiltVersions().map((version) =>
    path.join(prebuiltFolder, `openh264-${version}`))]
    .map((folder) => outsideArchive(folder, moduleName));
  const found = folders.filter((folder) => isIn(folder, moduleName));
  return (found.length > 0 ? found : folders.slice(0, 1))
    .map((folder) => path.join(folder, moduleName));
}

/**
 * True when a bundler has put this file into another one: neither the module
 * nor the programs are then where this file looks for them.
 */
function isBundled() {
  if (ownFolder === null) return true;
  try {
    const text =
      fs.readFileSync(path.join(packageFolder, 'package.json'), 'utf8');
    return JSON.parse(text).name !== packageName;
  } catch {
    return true;
  }
}

const bundledCause = `a bundler has taken ${packageName} out of its folder`;
const bundledRemedy = `Mark "${packageName}" as external in the bundler, and ` +
  'ship its folder in node_modules; docs/install.md says how.';

// npm never packs this file, so it tells a checkout from an installed package.
const isCheckout = () =>
  fs.existsSync(path.join(packageFolder, 'package-lock.json'));

/**
 * How the module is built where this package lies. npm shows what a script that
 * succeeds has to say only when it is asked to.
 */
const buildCommand = () =>
  (isCheckout() ? 'npm run build' : `npm rebuild ${packageName} --foreground-scripts`);

/** The same as a phrase; a build takes the folder of its package. */
const buildPhrase = () => `"${buildCommand()}"${
  isCheckout() ? ' in the folder of the package' : ''}`;

module.exports = {
  buildCommand, buildPhrase, builtFolder, bundledCause, bundledRemedy,
  isBundled, isCheckout, moduleFiles, nativeFolder, packageFolder,
  prebuiltFolder,
};
