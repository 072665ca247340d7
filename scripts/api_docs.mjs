// Writes docs/api/ from the type declarations, or says whether it is current.
//
//   node scripts/api_docs.mjs            writes
//   node scripts/api_docs.mjs --check    status 1 when a file would change
import { spawnSync } from 'node:child_process';
import {
  cpSync, mkdirSync, mkdtempSync, readFileSync, readdirSync, rmSync,
  statSync, writeFileSync,
} from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('..', import.meta.url));
const target = path.join(root, 'docs', 'api');

/**
 * The declarations of the main entry as those of an ordinary module: a
 * namespace that is assigned to the exports would be documented as a member
 * called "export=".
 */
function asModule(text) {
  const start = 'declare namespace linuxCaptureAddon {\n';
  const end = '}\n\nexport = linuxCaptureAddon;\n';
  if (!text.includes(start) || !text.endsWith(end)) {
    throw new Error('index.d.ts is not built as this script expects');
  }
  return text.slice(0, -end.length).replace(start, '\n')
    .replace(/^ {2}(?=(interface|type|function) )/gm, '  export ')
    .replace(/^ \*\/$/m, ' *\n * @module linux-capture-addon\n */');
}

const sessionComment = `/**
 * Captures by what a person would name, hands packets out through async
 * iterators and fails with codes. See docs/session.md for a guide.
 *
 * @module linux-capture-addon/session
 */
`;

const publishComment = `/**
 * Sends a capture to a conference server. See docs/publish.md for a guide.
 *
 * @module linux-capture-addon/publish
 */
`;

function prepareEntries(folder) {
  const read = (file) => readFileSync(path.join(root, file), 'utf8');
  mkdirSync(path.join(folder, 'lib', 'session'), { recursive: true });
  writeFileSync(path.join(folder, 'index.d.ts'), asModule(read('index.d.ts')));
  writeFileSync(path.join(folder, 'lib', 'session', 'index.d.ts'),
    read('lib/session/index.d.ts')
      .replace(/^(\/\/\/.*\n)/, `$1${sessionComment}`)
      .replace('import addon = require(\'../../index\');',
        'import * as addon from \'../../index\';'));
  mkdirSync(path.join(folder, 'lib', 'publish'));
  writeFileSync(path.join(folder, 'lib', 'publish', 'index.d.ts'),
    read('lib/publish/index.d.ts')
      .replace(/^(\/\/\/.*\n)/, `$1${publishComment}`)
      .replace('import session = require(\'../session/index\');',
        'import * as session from \'../session/index\';'));
  writeFileSync(path.join(folder, 'tsconfig.json'), JSON.stringify({
    compilerOptions: {
      lib: ['es2022', 'esnext.disposable'], module: 'node16', noEmit: true,
      strict: true, target: 'es2022', types: ['node'],
    },
    include: ['**/*.d.ts'],
  }));
}

function generate(folder, out) {
  prepareEntries(folder);
  const options = {
    plugin: ['typedoc-plugin-markdown'],
    entryPoints: ['index.d.ts', 'lib/session/index.d.ts',
      'lib/publish/index.d.ts'],
    out,
    name: 'API reference',
    readme: 'none',
    // One page for each entry, and nothing that changes from run to run.
    outputFileStrategy: 'modules',
    disableSources: true,
    excludeExternals: true,
    hideBreadcrumbs: true,
    hideGenerator: true,
    sort: ['source-order'],
    interfacePropertiesFormat: 'table',
    classPropertiesFormat: 'table',
    parametersFormat: 'table',
    typeDeclarationFormat: 'table',
    tableColumnSettings: { hideModifiers: true, hideSources: true },
    treatWarningsAsErrors: true,
    validation: { notExported: false },
    logLevel: 'Warn',
  };
  const file = path.join(folder, 'typedoc.json');
  writeFileSync(file, JSON.stringify(options));
  const run = spawnSync(process.execPath, [
    path.join(root, 'node_modules/typedoc/bin/typedoc'),
    '--options', file, '--tsconfig', path.join(folder, 'tsconfig.json'),
  ], { cwd: folder, encoding: 'utf8' });
  if (run.status !== 0) throw new Error(run.stdout + run.stderr);
}

const filesOf = (folder) => readdirSync(folder, { recursive: true })
  .filter((name) => statSync(path.join(folder, name)).isFile()).sort();

/** The files in which two folders differ. */
function differences(one, other) {
  const names = new Set([...filesOf(one), ...filesOf(other)]);
  const textOf = (folder, name) => {
    try {
      return readFileSync(path.join(folder, name), 'utf8');
    } catch {
      return null;
    }
  };
  return [...names].filter((name) =>
    textOf(one, name) !== textOf(other, name));
}

function main([option]) {
  if (option !== undefined && option !== '--check') {
    throw new Error(`unknown option ${option}`);
  }
  // Below the project, where the types of Node.js are found.
  const build = path.join(root, 'build');
  mkdirSync(build, { recursive: true });
  const folder = mkdtempSync(path.join(build, 'api-docs-'));
  try {
    const out = path.join(folder, 'out');
    generate(folder, out);
    if (option === '--check') {
      const changed = differences(out, target);
      if (changed.length === 0) return 0;
      console.error(`docs/api is not current: ${changed.join(', ')}\n` +
        'Run "npm run docs".');
      return 1;
    }
    rmSync(target, { recursive: true, force: true });
    cpSync(out, target, { recursive: true });
    return 0;
  } finally {
    rmSync(folder, { recursive: true });
  }
}

try {
  process.exitCode = main(process.argv.slice(2));
} catch (error) {
  console.error(`api_docs: ${error.message}`);
  process.exitCode = 1;
}
