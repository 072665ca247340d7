// Fails on an include or import that goes up or across the floors of the house:
// the file layers.json beside this one says for every folder which others its
// files may use, or of which folder one file alone. A folder may always use
// itself.
//
//   node scripts/check_layers.mjs
import { spawnSync } from 'node:child_process';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('..', import.meta.url));

/** The folder that an entry of a rule stands for. */
const folderOf = (entry) =>
  (/\.m?js$/.test(entry) ? path.posix.dirname(entry) : entry);

/** Folders that reach themselves over others; a rule file must have none. */
export function findCycle(rules) {
  const done = new Set();
  const visit = (folder, trail) => {
    if (trail.includes(folder)) {
      return [...trail.slice(trail.indexOf(folder)), folder];
    }
    if (done.has(folder)) {
      return null;
    }
    for (const next of (rules[folder] ?? []).map(folderOf)) {
      const cycle = visit(next, [...trail, folder]);
      if (cycle !== null) {
        return cycle;
      }
    }
    done.add(folder);
    return null;
  };
  for (const folder of Object.keys(rules)) {
    const cycle = visit(folder, []);
    if (cycle !== null) {
      return cycle;
    }
  }
  return null;
}

/** What the source text of a file includes between quotation marks. */
export function quotedIncludes(text) {
  return [...text.matchAll(/^\s*#\s*include\s+"([^"]+)"/gm)]
    .map((match) => match[1]);
}

/** The faults of one file, as lines for people. */
export function checkIncludes(file, includes, rules) {
  const folder = path.posix.dirname(file);
  if (!(folder in rules)) {
    return [`${file}: the folder "${folder}" has no rule`];
  }
  return includes
    .map((name) => [name, path.posix.dirname(name)])
    .filter(([, wanted]) =>
      wanted !== folder && !rules[folder].includes(wanted))
    .map(([name]) => `${file}: "${folder}" may not include "${name}"`);
}

function filesBelow(folder) {
  return readdirSync(folder, { recursive: true })
    .map((name) => name.split(path.sep).join('/'))
    .filter((name) => /\.(cc|h)$/.test(name))
    .sort();
}

/** All faults of the native sources. */
export function checkNativeLayers(rules) {
  const folder = path.join(root, 'src');
  const cycle = findCycle(rules);
  const faults = cycle === null
    ? []
    : [`the rules go round: ${cycle.join(' -> ')}`];
  for (const file of filesBelow(folder)) {
    const text = readFileSync(path.join(folder, file), 'utf8');
    faults.push(...checkIncludes(file, quotedIncludes(text), rules));
  }
  return faults;
}

/** The paths of other files that the text of a JavaScript file names. */
export function relativeImports(text) {
  const quoted = String.raw`['"](\.{1,2}(?:/[^'"]*)?)['"]`;
  return [...text.matchAll(new RegExp(
    String.raw`\b(?:from|import)\s*${quoted}|\b(?:import|require)\(\s*${quoted}`,
    'g'))].map((match) => match[1] ?? match[2])
    // A text that is put together names no file of this project.
    .filter((name) => !name.includes('${'));
}

/** The faults of one file of JavaScript, as lines for people. */
export function checkImports(file, imports, rules) {
  const folder = path.posix.dirname(file);
  if (!(folder in rules)) {
    return [`${file}: the folder "${folder}" has no rule`];
  }
  return imports
    .map((name) => path.posix.join(folder, name))
    .filter((wanted) => {
      const whole = path.posix.dirname(wanted);
      return whole !== folder && !rules[folder].includes(whole) &&
        !rules[folder].includes(wanted);
    })
    .map((wanted) => `${file}: "${folder}" may not import "${wanted}"`);
}

/** All JavaScript that belongs to the project. */
function scriptFiles() {
  const { stdout, status, stderr } = spawnSync('git', ['ls-files', '-z',
    '--cached', '--others', '--exclude-standard', '*.js', '*.mjs'],
  { cwd: root, encoding: 'utf8' });
  if (status !== 0) {
    throw new Error(stderr);
  }
  return stdout.split('\0').filter((name) =>
    name !== '' && existsSync(path.join(root, name)));
}

/** All faults of the JavaScript. */
export function checkScriptLayers(rules) {
  const cycle = findCycle(rules);
  return [
    ...(cycle === null ? [] : [`the rules go round: ${cycle.join(' -> ')}`]),
    ...scriptFiles().flatMap((file) => checkImports(file,
      relativeImports(readFileSync(path.join(root, file), 'utf8')), rules)),
  ];
}

export function readRules() {
  return JSON.parse(
    readFileSync(path.join(root, 'scripts', 'layers.json'), 'utf8'));
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const rules = readRules();
  const faults = [
    ...checkNativeLayers(rules.src), ...checkScriptLayers(rules.javascript),
  ];
  for (const fault of faults) {
    console.error(fault);
  }
  process.exitCode = faults.length === 0 ? 0 : 1;
}
