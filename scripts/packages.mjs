// What this machine lacks of the system packages that a purpose needs.
//
//   node scripts/packages.mjs missing [group...]   prints one name per line
import { spawnSync } from 'node:child_process';
import { accessSync, constants, existsSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

import systemPackages from '../lib/system_packages.js';

const { list: { packages: known, purposes } } = systemPackages;

/**
 * The packages of the named groups by their Debian names, each with its probe;
 * no name means every group.
 */
export function packagesOf(names) {
  const chosen = names.length > 0 ? names : Object.keys(purposes);
  const packages = new Map();
  for (const name of chosen) {
    if (!Object.hasOwn(purposes, name)) {
      throw new Error(
        `unknown package group "${name}"; there are ` +
          Object.keys(purposes).join(', '),
      );
    }
    for (const key of purposes[name]) {
      packages.set(known[key].names[0], known[key].probe);
    }
  }
  return packages;
}

/** Full path of a program in PATH, or null. */
export function findCommand(name) {
  for (const folder of (process.env.PATH ?? '').split(path.delimiter)) {
    const file = path.join(folder || '.', name);
    try {
      accessSync(file, constants.X_OK);
      return file;
    } catch {
      // Not in this folder.
    }
  }
  return null;
}

/** What pkg-config answers, or null when it fails or is not there. */
export function pkgConfig(...args) {
  const run = spawnSync('pkg-config', args, { encoding: 'utf8' });
  return run.status === 0 ? run.stdout.trim() : null;
}

// A distribution without dpkg, or a tool installed by hand, is judged by what
// the package would have brought.
function probeSucceeds(probe) {
  const colon = probe.indexOf(':');
  const kind = probe.slice(0, colon);
  const subject = probe.slice(colon + 1);
  switch (kind) {
    case 'command':
      return findCommand(subject) !== null;
    case 'module':
      return pkgConfig('--exists', subject) !== null;
    case 'plugin': {
      const folder = pkgConfig('--variable=pluginsdir', 'gstreamer-1.0');
      return folder !== null && existsSync(path.join(folder, subject));
    }
    case 'file':
      return existsSync(subject);
    default:
      throw new Error(`unknown kind of probe: ${probe}`);
  }
}

function installedDebianPackages(names) {
  const run = spawnSync(
    'dpkg-query',
    ['-W', '-f', '${Package} ${db:Status-Status}\n', ...names],
    { encoding: 'utf8' },
  );
  if (run.error) {
    return null;
  }
  const installed = new Set();
  for (const line of run.stdout.split('\n')) {
    const [name, status] = line.split(' ');
    if (status === 'installed') {
      installed.add(name);
    }
  }
  return installed;
}

/** Names of the packages of the groups that this machine lacks. */
export function missingPackages(groupNames) {
  const packages = packagesOf(groupNames);
  const installed = installedDebianPackages([...packages.keys()]);
  return [...packages]
    .filter(([name, probe]) => !installed?.has(name) && !probeSucceeds(probe))
    .map(([name]) => name);
}

function main([action, ...groupNames]) {
  if (action !== 'missing') {
    throw new Error('usage: packages.mjs missing [group...]');
  }
  for (const name of missingPackages(groupNames)) {
    console.log(name);
  }
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  try {
    main(process.argv.slice(2));
  } catch (error) {
    console.error(`packages: ${error.message}`);
    process.exitCode = 1;
  }
}
