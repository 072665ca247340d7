// Which lines of JavaScript ran, from what V8 has counted.
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import { pathToFileURL } from 'node:url';

// A line of these alone is closed or explained by others.
const isCode = (line) => !/^\s*(\/\/|\/\*|\*|[\s()[\]{};,]*$)/.test(line);

/**
 * How often each line of a text ran, for the lines that hold code. V8 tells
 * ranges of characters, those inside after those around them; a line ran if
 * any character of it did.
 */
export function countLines(text, functions) {
  const counts = new Uint32Array(text.length);
  for (const { ranges } of functions) {
    for (const { startOffset, endOffset, count } of ranges) {
      counts.fill(count, startOffset, endOffset);
    }
  }
  const lines = new Map();
  let start = 0;
  text.split('\n').forEach((line, index) => {
    if (isCode(line)) {
      const first = start + line.search(/\S/);
      const end = start + line.trimEnd().length;
      lines.set(index + 1, counts.subarray(first, end)
        .reduce((most, count) => Math.max(most, count), 0));
    }
    start += line.length + 1;
  });
  return lines;
}

function reportsIn(folder) {
  if (!existsSync(folder)) return [];
  return readdirSync(folder).filter((name) => name.endsWith('.json'))
    .flatMap((name) => {
      try {
        return JSON.parse(readFileSync(path.join(folder, name), 'utf8')).result;
      } catch {
        // Its process was killed while it wrote.
        return [];
      }
    });
}

/** The lines of these files, relative to `root`, that any process has run. */
export function readScriptLines(folder, names, root) {
  const files = new Map();
  const byAddress = new Map();
  for (const name of names) {
    const text = readFileSync(path.join(root, name), 'utf8');
    files.set(name, countLines(text, []));
    byAddress.set(pathToFileURL(path.join(root, name)).href, { name, text });
  }
  for (const { url, functions } of reportsIn(folder)) {
    const found = byAddress.get(url);
    if (found === undefined) continue;
    const counts = files.get(found.name);
    for (const [line, count] of countLines(found.text, functions)) {
      counts.set(line, Math.max(counts.get(line), count));
    }
  }
  return files;
}
