import assert from 'node:assert/strict';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { pathToFileURL } from 'node:url';

import { bundleMedia } from '../../scripts/bundle_media.mjs';

let folder;
before(() => {
  folder = mkdtempSync(path.join(tmpdir(), 'media-library-'));
  bundleMedia(folder);
});
after(() => rmSync(folder, { recursive: true }));

test('the one file of the package has all that a recording takes', async () => {
  const wanted = ['media_file', 'opus_encoder'].flatMap((file) => {
    const text = readFileSync(new URL(
      `../../lib/command/recording/${file}.mjs`, import.meta.url), 'utf8');
    const [, names] =
      /import \{([^}]+)\} from '.\/media_library\.mjs'/.exec(text);
    return names.split(',').map((name) => name.trim()).filter(Boolean);
  });
  assert.ok(wanted.length > 5);
  const library =
    await import(pathToFileURL(path.join(folder, 'media_library.mjs')).href);
  for (const name of wanted) assert.equal(typeof library[name], 'function');
});

test('the licenses of what it holds lie beside it', () => {
  const text =
    readFileSync(path.join(folder, 'media_library.LICENSES.txt'), 'utf8');
  for (const name of ['mediabunny', '@mediabunny/aac-encoder']) {
    const { version } = JSON.parse(readFileSync(new URL(
      `../../node_modules/${name}/package.json`, import.meta.url), 'utf8'));
    assert.ok(text.includes(`${name} ${version} (MPL-2.0)`));
  }
  assert.match(text, /Mozilla Public License Version 2\.0/);
});
