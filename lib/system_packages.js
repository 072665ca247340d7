'use strict';

const fs = require('node:fs');

/**
 * The one list of the packages of distributions: what each is called in the
 * column of its family, how a machine is asked for it, and which brings what
 * the module is built with, linked with or asks GStreamer for. The loader, the
 * session's errors, "linux-capture doctor", the setup, the build script and
 * CMake all read it.
 */
const list = require('./system_packages.json');

// The first match counts.
const find = (entries, name) =>
  entries.find(([pattern]) => new RegExp(pattern).test(name))?.[1];

/** The names of a package of the list. */
const namesOf = (key) => list.packages[key].names;

const named = (key) => (key === undefined ? null : namesOf(key));

/** The packages of a shared library such as "libX11.so.6"; null if unknown. */
function packagesOfLibrary(name) {
  // The Debian package is called after the version of the interface.
  const openh264 = /^libopenh264\.so\.(\d+)/.exec(name);
  return openh264 === null ? named(find(list.libraries, name))
    : [`libopenh264-${openh264[1]}`, 'openh264', 'openh264'];
}

const packagesOfElement = (name) => named(find(list.elements, name));
const packagesOfPlugin = (file) => named(list.plugins[file]);
const packagesOfModule = (name) => named(list.modules[name]?.package);

const families = [
  { id: 'debian', title: 'Debian', column: 0, command: 'apt install' },
  { id: 'ubuntu', title: 'Ubuntu', column: 0, command: 'apt install' },
  { id: 'fedora', title: 'Fedora', column: 1, command: 'dnf install' },
  { id: 'arch', title: 'Arch', column: 2, command: 'pacman -S' },
];

function readOsRelease() {
  for (const file of ['/etc/os-release', '/usr/lib/os-release']) {
    try {
      return fs.readFileSync(file, 'utf8');
    } catch {
      // The second is the file, the first usually a link to it.
    }
  }
  return '';
}

/**
 * The family of distributions that this system belongs to, with the version of
 * the release by which the packages are called, or null. What has no version
 * yet, or one that is not known, is newer than all that have.
 */
function familyOf(osRelease = readOsRelease()) {
  const value = (key) => new RegExp(`^${key}=["']?([^"'\\n]*)`, 'm')
    .exec(osRelease)?.[1].toLowerCase() ?? '';
  const own = value('ID');
  for (const id of [own, ...value('ID_LIKE').split(' ')]) {
    const family = families.find((entry) => entry.id === id);
    if (family === undefined) continue;
    // A descendant has numbers of its own, but tells whose packages it takes.
    const codename = value(`${id}_CODENAME`.toUpperCase()) ||
      value('VERSION_CODENAME');
    const version = list.releases[id]?.[codename] ??
      Number((id === own && value('VERSION_ID')) || Infinity);
    return { ...family, version };
  }
  return null;
}

/** True when a release is one of those that have had something since then. */
const hasSince = (since, { id, version }) => version >= (since[id] ?? Infinity);

/** The version of OpenH264's interface in a release; null if not known. */
function openh264Version(family = familyOf()) {
  return family === null ? null : list.openh264.findLast(
    ({ since }) => hasSince(since, family))?.version ?? null;
}

/** What the release calls a package that the list has by an older name. */
function nameIn(family, name) {
  const renamed = list.renamed[name];
  return renamed !== undefined && hasSince(renamed.since, family)
    ? renamed.name : name;
}

const unique = (list) => [...new Set(list)];

/** Their names in this system; those of Debian where it is not known. */
function packageNames(wanted, family = familyOf()) {
  if (family === null) return unique(wanted.map(([name]) => name));
  return unique(wanted.map((names) => nameIn(family, names[family.column])));
}

/** Debian, Ubuntu: one name; Fedora: another; as a phrase. */
function everyName(wanted) {
  const titles = new Map();
  for (const { title, column } of families) {
    const names = unique(wanted.map((entry) => entry[column])).join(' ');
    titles.set(names, [...titles.get(names) ?? [], title]);
  }
  return [...titles].map(([names, systems]) =>
    `${names} (${systems.join(', ')})`).join(', ');
}

/** One sentence that says how to install these packages on this system. */
function installSentence(wanted, family = familyOf()) {
  return family === null ? `Install ${everyName(wanted)}.`
    : `Install with: ${family.command} ${
      packageNames(wanted, family).join(' ')}`;
}

module.exports = {
  familyOf, installSentence, list, namesOf, openh264Version, packageNames,
  packagesOfElement, packagesOfLibrary, packagesOfModule, packagesOfPlugin,
};
