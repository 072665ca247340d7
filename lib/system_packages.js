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

/** The family of distributions that this system belongs to, or null. */
function familyOf(osRelease = readOsRelease()) {
  const value = (key) => new RegExp(`^${key}=["']?([^"'\\n]*)`, 'm')
    .exec(osRelease)?.[1].toLowerCase() ?? '';
  const ids = [value('ID'), ...value('ID_LIKE').split(' ')];
  for (const id of ids) {
    const family = families.find((entry) => entry.id === id);
    if (family !== undefined) return family;
  }
  return null;
}

const unique = (list) => [...new Set(list)];

/** Their names in this system; those of Debian where it is not known. */
function packageNames(wanted, family = familyOf()) {
  return unique(wanted.map((names) => names[family?.column ?? 0]));
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
  familyOf, installSentence, list, namesOf, packageNames, packagesOfElement,
  packagesOfLibrary, packagesOfModule, packagesOfPlugin,
};
