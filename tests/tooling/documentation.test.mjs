import assert from 'node:assert/strict';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('../..', import.meta.url));
const read = (file) => readFileSync(path.join(root, file), 'utf8');

const pages = ['README.md', 'CONTRIBUTING.md', 'SECURITY.md', 'CHANGELOG.md',
  ...readdirSync(path.join(root, 'docs'), { recursive: true })
    .filter((name) => name.endsWith('.md'))
    .map((name) => path.join('docs', name))];

/** The anchors that a reader of Markdown makes of a page's headings. */
const anchorsOf = (text) => [
  ...[...text.matchAll(/^#+ (.+)$/gm)].map(([, heading]) =>
    heading.toLowerCase().replace(/[^\w\- ]/g, '').replaceAll(' ', '-')),
  ...[...text.matchAll(/<a id="([^"]+)">/g)].map(([, id]) => id),
];

const withoutCode = (text) => text.replace(/^```[\s\S]*?^```$/gm, '');

for (const page of pages) {
  test(`the links of ${page} lead somewhere`, () => {
    const text = withoutCode(read(page));
    for (const [, link] of text.matchAll(/\]\(([^)\s]+)\)/g)) {
      if (/^[a-z]+:/.test(link)) continue;
      const [file, anchor] = link.split('#');
      const target = file === '' ? page
        : path.join(path.dirname(page), decodeURIComponent(file));
      assert.ok(existsSync(path.join(root, target)), link);
      // Repeated headings of the generated pages get numbers.
      if (anchor !== undefined && !page.startsWith('docs/api')) {
        assert.ok(anchorsOf(read(target)).includes(anchor), link);
      }
    }
  });
}

/** Texts that the module throws, without the parts that differ. */
function thrownTexts() {
  const texts = new Map();
  const thrown =
    /(?:runtime_error|FailEncoderStep|TypeError::New)\(\s*(?:env,|info\.Env\(\),)?\s*((?:"(?:[^"\\\n]|\\.)*"\s*)+)/g;
  for (const name of readdirSync(path.join(root, 'src'), { recursive: true })) {
    if (!/\.(cc|h)$/.test(name)) continue;
    for (const [, literals] of read(path.join('src', name)).matchAll(thrown)) {
      const text = [...literals.matchAll(/"((?:[^"\\\n]|\\.)*)"/g)]
        .map(([, part]) => part).join('').replaceAll('\\"', '"').trim();
      texts.set(text, name);
    }
  }
  return texts;
}

test('every error of the module is in the page on troubleshooting', () => {
  const page = read('docs/troubleshooting.md').replace(/\s+/g, ' ');
  const texts = thrownTexts();
  assert.ok(texts.size > 40, `${texts.size} were found`);
  const isThere = (text) => page.includes(text.replace(/:$/, '')) ||
    // Several errors with one beginning may share an entry.
    (/^Linux hardware simulcast FPS parity requires/.test(text) &&
      page.includes('Linux hardware simulcast FPS parity requires …'));
  assert.deepEqual([...texts].filter(([text]) => !isThere(text)), []);
});

test('every code of the session is in its guide', () => {
  const guide = read('docs/session.md');
  for (const [code] of read('lib/session/errors.js')
    .matchAll(/\b(ERR_CAPTURE_\w+|ABORT_ERR)(?=: ')/g)) {
    assert.ok(guide.includes(`\`${code}\``), code);
  }
});
