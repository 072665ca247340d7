import { existsSync, readdirSync } from 'node:fs';
import path from 'node:path';

const base = 'gstreamer1.0-plugins-base';

// What each use needs; one of the files, where elements have moved.
const uses = {
  pictures: [
    [['libgstcoreelements.so'], 'libgstreamer1.0-0'],
    [['libgstapp.so'], base],
    [['libgstvideoconvertscale.so', 'libgstvideoconvert.so'], base],
    [['libgstvideorate.so'], base],
  ],
  x11: [[['libgstximagesrc.so'], 'gstreamer1.0-plugins-good']],
  pipewire: [[['libgstpipewire.so'], 'gstreamer1.0-pipewire']],
  sound: [
    [['libgstaudioconvert.so'], base],
    [['libgstaudioresample.so'], base],
    [['libgstaudiomixer.so'], base],
  ],
};

const variables = [
  'GST_PLUGIN_PATH_1_0', 'GST_PLUGIN_PATH', 'GST_PLUGIN_SYSTEM_PATH_1_0',
  'GST_PLUGIN_SYSTEM_PATH',
];

function pluginFolders(environment) {
  const named = variables.flatMap((name) =>
    (environment[name] ?? '').split(path.delimiter));
  const libraries = ['/usr/lib', '/usr/lib64', '/usr/local/lib'].flatMap(
    (folder) => [folder, ...(existsSync(folder) ? readdirSync(folder)
      .filter((name) => name.includes('-linux-'))
      .map((name) => path.join(folder, name)) : [])]);
  return [...named.filter(Boolean),
    ...libraries.map((folder) => path.join(folder, 'gstreamer-1.0'))];
}

/** The packages whose GStreamer elements are missing for a use. */
export function missingElements(
  use, environment, folders = pluginFolders(environment)) {
  const isThere = (file) =>
    folders.some((folder) => existsSync(path.join(folder, file)));
  return uses[use].filter(([files]) => !files.some(isThere))
    .map(([files, debianPackage]) => ({ file: files[0], debianPackage }));
}

/** The check of one use, for the report. */
export function checkElements(use, title, environment) {
  const missing = missingElements(use, environment);
  const packages = [...new Set(missing.map((entry) => entry.debianPackage))];
  return {
    id: `elements-${use}`,
    title,
    isUsable: missing.length === 0,
    detail: missing.length === 0 ? 'installed'
      : `missing: ${missing.map(({ file }) => file).join(', ')}`,
    remedy: missing.length === 0 ? null
      : `Install ${packages.join(' ')}.`,
    packages,
  };
}
