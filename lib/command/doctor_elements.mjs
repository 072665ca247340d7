import { existsSync, readdirSync } from 'node:fs';
import path from 'node:path';

import systemPackages from '../system_packages.js';

const { installSentence, packageNames, packagesOfPlugin } = systemPackages;

// What each use needs; one of the files, where elements have moved.
const uses = {
  pictures: [
    ['libgstcoreelements.so'],
    ['libgstapp.so'],
    ['libgstvideoconvertscale.so', 'libgstvideoconvert.so'],
    ['libgstvideorate.so'],
  ],
  x11: [['libgstximagesrc.so']],
  pipewire: [['libgstpipewire.so']],
  sound: [
    ['libgstaudioconvert.so'],
    ['libgstaudioresample.so'],
    ['libgstaudiomixer.so'],
  ],
};

const systemFolders = ['GST_PLUGIN_SYSTEM_PATH_1_0', 'GST_PLUGIN_SYSTEM_PATH'];
const furtherFolders = ['GST_PLUGIN_PATH_1_0', 'GST_PLUGIN_PATH'];

function pluginFolders(environment) {
  const foldersIn = (names) => names.flatMap((name) =>
    (environment[name] ?? '').split(path.delimiter)).filter(Boolean);
  const named = foldersIn([...furtherFolders, ...systemFolders]);
  // They take the place of the folders that GStreamer would look into.
  if (foldersIn(systemFolders).length > 0) return named;
  const libraries = ['/usr/lib', '/usr/lib64', '/usr/local/lib'].flatMap(
    (folder) => [folder, ...(existsSync(folder) ? readdirSync(folder)
      .filter((name) => name.includes('-linux-'))
      .map((name) => path.join(folder, name)) : [])]);
  return [...named,
    ...libraries.map((folder) => path.join(folder, 'gstreamer-1.0'))];
}

/** The packages whose GStreamer elements are missing for a use. */
export function missingElements(
  use, environment, folders = pluginFolders(environment)) {
  const isThere = (file) =>
    folders.some((folder) => existsSync(path.join(folder, file)));
  return uses[use].filter((files) => !files.some(isThere))
    .map(([file]) => ({ file, packages: packagesOfPlugin(file) }));
}

const plainName = (file) => file.replace(/^libgst(.*)\.so$/, '$1');

/** The check of one use, for the report. */
export function checkElements(use, title, environment) {
  const missing = missingElements(use, environment);
  const names = missing.map(({ file }) => plainName(file));
  const wanted = missing.map((entry) => entry.packages);
  return {
    id: `elements-${use}`,
    title,
    isUsable: missing.length === 0,
    detail: missing.length === 0 ? 'installed'
      : `GStreamer has no plugin ${names.join(', ')}`,
    remedy: missing.length === 0 ? null
      : installSentence(wanted),
    packages: packageNames(wanted),
    wanted,
  };
}
