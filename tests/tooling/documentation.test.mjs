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
    /(?:CodedError|FailEncoderStep|ArgumentError)\(\s*(?:error_code::\w+,|env,|info\.Env\(\),)?\s*((?:"(?:[^"\\\n]|\\.)*"\s*)+)/g;
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

/** The rows of a table of codes in docs/native.md, by the line before it. */
function documentedCodes(title) {
  const page = read('docs/native.md');
  const table = page.slice(page.indexOf(title)).split('\n\n')[1];
  return [...table.matchAll(/^\| `([a-z0-9-]+)` \|/gm)].map(([, code]) => code);
}

const nativeCodes = [...read('src/base/coded_error.h')
  .matchAll(/\b(k\w+) =\s*"([a-z0-9-]+)"/g)]
  .map(([, name, code]) => ({ name, code }));

test('every code of the native module is in its guide, and no other', () => {
  const documented = new Set([...documentedCodes('Codes of errors:'),
    ...documentedCodes('Codes of events:')]);
  assert.deepEqual([...documented].sort(),
    nativeCodes.map(({ code }) => code).sort());
});

test('every code of the native module is given to something', () => {
  const sources = readdirSync(path.join(root, 'src'), { recursive: true })
    .filter((name) => /\.(cc|h)$/.test(name) && !name.endsWith('coded_error.h'))
    .map((name) => read(path.join('src', name))).join('\n');
  assert.deepEqual(nativeCodes.map(({ name }) => name)
    .filter((name) => !sources.includes(`error_code::${name}`)), []);
});

test('the types name the codes of the guide', () => {
  const types = read('index.d.ts');
  for (const [type, title] of [['ErrorCode', 'Codes of errors:'],
    ['EventCode', 'Codes of events:']]) {
    const [, union] = types.match(new RegExp(`type ${type} =([^;]*);`));
    assert.deepEqual([...union.matchAll(/'([^']+)'/g)]
      .map(([, code]) => code).sort(), documentedCodes(title).sort());
  }
});

test('every code of the session is in its guide', () => {
  const guide = read('docs/session.md');
  for (const [code] of read('lib/session/errors.js')
    .matchAll(/\b(ERR_CAPTURE_\w+|ABORT_ERR)(?=: ')/g)) {
    assert.ok(guide.includes(`\`${code}\``), code);
  }
});
