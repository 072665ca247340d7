'use strict';

const fs = require('node:fs');

/**
 * Which package of a distribution brings what the module is built with, linked
 * with or asks GStreamer for. The one list of them on the JavaScript side: the
 * loader, the session's errors, "linux-capture doctor" and the installation
 * all take their remedies from here.
 */
const packages = {
  // Libraries.
  gstreamer: ['libgstreamer1.0-0', 'gstreamer1', 'gstreamer'],
  gstreamerBase: ['libgstreamer-plugins-base1.0-0', 'gstreamer1-plugins-base',
    'gst-plugins-base-libs'],
  glib: ['libglib2.0-0', 'glib2', 'glib2'],
  x11: ['libx11-6', 'libX11', 'libx11'],
  xcb: ['libxcb1', 'libxcb', 'libxcb'],
  xext: ['libxext6', 'libXext', 'libxext'],
  xrandr: ['libxrandr2', 'libXrandr', 'libxrandr'],
  pipewireLibrary: ['libpipewire-0.3-0', 'pipewire-libs', 'libpipewire'],
  stdcxx: ['libstdc++6', 'libstdc++', 'gcc-libs'],
  gcc: ['libgcc-s1', 'libgcc', 'gcc-libs'],
  // GStreamer elements.
  elementsBase: ['gstreamer1.0-plugins-base', 'gstreamer1-plugins-base',
    'gst-plugins-base'],
  elementsGood: ['gstreamer1.0-plugins-good', 'gstreamer1-plugins-good',
    'gst-plugins-good'],
  elementsPipewire: ['gstreamer1.0-pipewire', 'pipewire-gstreamer',
    'gst-plugin-pipewire'],
  elementsGl: ['gstreamer1.0-gl', 'gstreamer1-plugins-base',
    'gst-plugins-base'],
  elementsBad: ['gstreamer1.0-plugins-bad', 'gstreamer1-plugins-bad-free',
    'gst-plugins-bad'],
  // What a build from source takes.
  compiler: ['g++', 'gcc-c++', 'gcc'],
  cmake: ['cmake', 'cmake', 'cmake'],
  ninja: ['ninja-build', 'ninja-build', 'ninja'],
  pkgConfig: ['pkg-config', 'pkgconf-pkg-config', 'pkgconf'],
  gstreamerHeaders: ['libgstreamer1.0-dev', 'gstreamer1-devel', 'gstreamer'],
  gstreamerBaseHeaders: ['libgstreamer-plugins-base1.0-dev',
    'gstreamer1-plugins-base-devel', 'gst-plugins-base-libs'],
  openh264Headers: ['libopenh264-dev', 'openh264-devel', 'openh264'],
  x11Headers: ['libx11-dev', 'libX11-devel', 'libx11'],
  xcbHeaders: ['libxcb1-dev', 'libxcb-devel', 'libxcb'],
  xrandrHeaders: ['libxrandr-dev', 'libXrandr-devel', 'libxrandr'],
  glibHeaders: ['libglib2.0-dev', 'glib2-devel', 'glib2'],
  pipewireHeaders: ['libpipewire-0.3-dev', 'pipewire-devel', 'libpipewire'],
};

// Each first match counts. The names are those of shared libraries, without
// the part that counts their versions.
const libraries = [
  [/^libgst(reamer|base|net|controller|check)-1\.0\./, 'gstreamer'],
  [/^libgst/, 'gstreamerBase'],
  [/^lib(glib|gobject|gio|gmodule|gthread)-2\.0\./, 'glib'],
  [/^libX11\./, 'x11'],
  [/^libxcb\./, 'xcb'],
  [/^libXext\./, 'xext'],
  [/^libXrandr\./, 'xrandr'],
  [/^libpipewire-0\.3\./, 'pipewireLibrary'],
  [/^libstdc\+\+\./, 'stdcxx'],
  [/^libgcc_s\./, 'gcc'],
];

const elements = [
  [/^(queue|tee|capsfilter|fakesink|identity)$/, 'gstreamer'],
  [/^(appsink|appsrc|video(rate|convert|scale)|audio(mixer|convert|resample))$/,
    'elementsBase'],
  [/^ximagesrc$/, 'elementsGood'],
  [/^pipewire/, 'elementsPipewire'],
  [/^gl(upload|download|color|videomixer)/, 'elementsGl'],
  [/^(nv|va|qsv|vulkan|h264parse)/, 'elementsBad'],
];

const plugins = {
  'libgstcoreelements.so': 'gstreamer',
  'libgstximagesrc.so': 'elementsGood',
  'libgstpipewire.so': 'elementsPipewire',
  'libgstopengl.so': 'elementsGl',
  'libgstnvcodec.so': 'elementsBad',
  'libgstapp.so': 'elementsBase',
  'libgstvideoconvertscale.so': 'elementsBase',
  'libgstvideorate.so': 'elementsBase',
  'libgstaudioconvert.so': 'elementsBase',
  'libgstaudioresample.so': 'elementsBase',
  'libgstaudiomixer.so': 'elementsBase',
};

// Development files by what pkg-config calls them.
const modules = {
  'gstreamer-1.0': 'gstreamerHeaders',
  'gstreamer-app-1.0': 'gstreamerBaseHeaders',
  'gstreamer-video-1.0': 'gstreamerBaseHeaders',
  openh264: 'openh264Headers',
  x11: 'x11Headers',
  xcb: 'xcbHeaders',
  xrandr: 'xrandrHeaders',
  'gio-unix-2.0': 'glibHeaders',
  'libpipewire-0.3': 'pipewireHeaders',
};

const find = (list, name) =>
  list.find(([pattern]) => pattern.test(name))?.[1];

const named = (key) => (key === undefined ? null : packages[key]);

/** The packages of a shared library such as "libX11.so.6"; null if unknown. */
function packagesOfLibrary(name) {
  // The Debian package is called after the version of the interface.
  const openh264 = /^libopenh264\.so\.(\d+)/.exec(name);
  return openh264 === null ? named(find(libraries, name))
    : [`libopenh264-${openh264[1]}`, 'openh264', 'openh264'];
}

const packagesOfElement = (name) => named(find(elements, name));
const packagesOfPlugin = (file) => named(plugins[file]);
const packagesOfModule = (name) => named(modules[name]);

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
  familyOf, installSentence, packageNames, packages, packagesOfElement,
  packagesOfLibrary, packagesOfModule, packagesOfPlugin,
};
