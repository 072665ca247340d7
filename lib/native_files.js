'use strict';

const fs = require('node:fs');
const path = require('node:path');
const process = require('node:process');

// Some bundlers leave nothing that says where a file lies.
const ownFolder = typeof __dirname === 'string' ? __dirname : null;
const packageFolder = path.join(ownFolder ?? process.cwd(), '..');
const packageName = 'linux-capture-addon';
const moduleName = 'linux_capture_addon.node';

/** What a build on this machine made, and what the package brought along. */
const builtFolder = path.join(packageFolder, 'build', 'release');
const prebuiltFolder =
  path.join(packageFolder, 'prebuilds', `linux-${process.arch}`);

/**
 * The folder that has the module or, by its name, a program beside it. What
 * was built on this machine fits it best and comes first; without either this
 * is where a build would put it.
 */
function nativeFolder(name = moduleName) {
  const folder = [builtFolder, prebuiltFolder].find((candidate) =>
    fs.existsSync(path.join(candidate, name))) ?? builtFolder;
  // Electron unpacks programs beside its archive and loads modules from there
  // by itself, but starts no program from the archive.
  return folder.replace(/([\\/]app\.asar)(?=[\\/])/, '$1.unpacked');
}

const moduleFile = () => path.join(nativeFolder(), moduleName);

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

/** How the module is built where this package lies. */
const buildCommand = () =>
  (isCheckout() ? 'npm run build' : `npm rebuild ${packageName}`);

/** The same as a phrase; a build takes the folder of its package. */
const buildPhrase = () => `"${buildCommand()}"${
  isCheckout() ? ' in the folder of the package' : ''}`;

module.exports = {
  buildCommand, buildPhrase, builtFolder, bundledCause, bundledRemedy,
  isBundled, isCheckout, moduleFile, nativeFolder, packageFolder,
  prebuiltFolder,
};
