// Fails on an include that goes up or across the floors of the house: the file
// layers.json beside this one says for every folder which others its files may
// include. A folder may always include itself.
//
//   node scripts/check_layers.mjs
import { readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('..', import.meta.url));

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
    for (const next of rules[folder] ?? []) {
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

export function readRules() {
  return JSON.parse(
    readFileSync(path.join(root, 'scripts', 'layers.json'), 'utf8'));
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const faults = checkNativeLayers(readRules().src);
  for (const fault of faults) {
    console.error(fault);
  }
  process.exitCode = faults.length === 0 ? 0 : 1;
}
