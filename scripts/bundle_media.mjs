// Makes one file of the npm packages that a recording takes, and one of their
// licenses; see lib/command/recording/media_library.mjs.
import { readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('..', import.meta.url));
const require = createRequire(import.meta.url);

const packages = ['mediabunny', '@mediabunny/aac-encoder'];

function licenseOf(name) {
  const folder = path.join(root, 'node_modules', name);
  const { version, license } = JSON.parse(
    readFileSync(path.join(folder, 'package.json'), 'utf8'));
  return `${name} ${version} (${license})\n\n` +
    readFileSync(path.join(folder, 'LICENSE'), 'utf8');
}

/** Writes media_library.mjs and its licenses into a folder. */
export function bundleMedia(folder) {
  // Only who packs has it.
  const { buildSync } = require('esbuild');
  buildSync({
    absWorkingDir: root,
    entryPoints: ['lib/command/recording/media_packages.mjs'],
    outfile: path.join(folder, 'media_library.mjs'),
    bundle: true,
    format: 'esm',
    platform: 'node',
    target: 'node20',
    // Left readable: their license asks for the form that one would change.
    minify: false,
    legalComments: 'inline',
    logLevel: 'warning',
  });
  writeFileSync(path.join(folder, 'media_library.LICENSES.txt'), [
    'media_library.mjs contains parts of these npm packages, unchanged but ' +
      'joined into\none file. The packages of these versions hold their ' +
      'sources.\n',
    ...packages.map(licenseOf),
  ].join('\n' + '-'.repeat(78) + '\n\n'));
}
