// Fails where the native code hands a library a function of its own that is not
// guarded by NoThrow of src/base/c_callback.h: an exception would go
// through the frames of a C library.
//
//   node scripts/check_callbacks.mjs
import { readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('..', import.meta.url));

/** The files that wrap what others must not call. */
const wrappers = ['src/base/glib_callback.h', 'src/base/object_data.h',
  'src/base/pad_probe.h'];

const rules = [
  {
    pattern: /\b(?:g_signal_connect\w*|gst_pad_add_probe)\s*\(/g,
    advice: 'use ConnectSignal, AddBufferProbe or AddUpstreamQueryProbe',
  },
  {
    pattern: /\bg_object_set_q?data_full\s*\(/g,
    advice: 'use SetObjectData',
  },
  {
    // A function among the arguments of a call that registers it.
    pattern: new RegExp('\\b(?:gst_bus_set_sync_handler|g_timeout_add\\w*|' +
      'g_idle_add\\w*|g_type_register_static_simple|gst_bus_add_watch\\w*|' +
      'g_unix_(?:fd|signal)_add|g_dbus_connection_\\w+)' +
      '\\s*\\((?:[^;]*?[\\s,&(])(?:Init|On|Handle|Run|Delete)[A-Z]\\w*\\s*[,)]',
    'g'),
    advice: 'wrap the function into NoThrow',
  },
  {
    // A function in a table of methods or events: `events.done = OnDone;`.
    pattern: /(?:\.|->)\w+ =\s+&?(?:\w+::)*[A-Z][a-z]\w*;/g,
    advice: 'wrap the function into NoThrow',
  },
  {
    pattern: /\bWelsTraceCallback \w+ =\s+&?[A-Z][a-z]\w*;/g,
    advice: 'wrap the function into NoThrow',
  },
];

/** The faults of one file's text, as lines for people. */
export function checkCallbacks(file, text) {
  if (wrappers.includes(file)) {
    return [];
  }
  return rules.flatMap(({ pattern, advice }) =>
    [...text.matchAll(pattern)].map(({ index }) => {
      const line = text.slice(0, index).split('\n').length;
      return `${file}:${line}: a callback that may throw: ${advice}`;
    }));
}

function main() {
  const faults = ['src', 'programs']
    .flatMap((folder) => readdirSync(path.join(root, folder),
      { recursive: true }).map((name) => path.join(folder, name)))
    .filter((name) => /\.(?:cc|h)$/.test(name))
    .flatMap((name) => checkCallbacks(name,
      readFileSync(path.join(root, name), 'utf8')));
  if (faults.length > 0) {
    console.error(faults.join('\n'));
    process.exitCode = 1;
  }
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  main();
}
