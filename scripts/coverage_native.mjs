// Which lines of the native code ran, from what gcov has counted.
import { spawnSync } from 'node:child_process';
import { existsSync, readFileSync, readdirSync, rmSync } from 'node:fs';
import path from 'node:path';

const filesIn = (folder, ending) => readdirSync(folder, { recursive: true })
  .filter((name) => name.endsWith(ending))
  .map((name) => path.join(folder, name));

/** Forgets what earlier runs of a build have counted, if there were any. */
export function forgetNativeCounts(folder) {
  if (!existsSync(folder)) return;
  for (const file of filesIn(folder, '.gcda')) rmSync(file);
}

/**
 * Adds one report of gcov to `files`: a map from file names, relative to
 * `root`, to maps from line numbers to counts. A header is compiled many times;
 * a line of it ran if it did in one of them.
 */
export function addGcovReport(files, report, root) {
  for (const { file, lines } of report.files) {
    const name = path.relative(root, path.resolve(root, file));
    if (name.startsWith('..')) continue;
    if (!files.has(name)) files.set(name, new Map());
    const counts = files.get(name);
    for (const { line_number: line, count } of lines) {
      counts.set(line, Math.max(counts.get(line) ?? 0, count));
    }
  }
}

// Such a line holds no statement: what is counted there is the way of an
// exception.
const isClosing = (line) =>
  /^([\s()[\]{};,]*|\s*\} catch \(\.\.\.\) \{)$/.test(line);

function forgetClosingLines(files, root) {
  for (const [name, counts] of files) {
    const file = path.join(root, name);
    if (!existsSync(file)) continue;
    readFileSync(file, 'utf8').split('\n').forEach((line, index) => {
      if (isClosing(line)) counts.delete(index + 1);
    });
  }
}

/** The lines of the sources below `root` that ran in the build of a folder. */
export function readNativeLines(folder, root) {
  const files = new Map();
  // What the compiler has noted of each object; what never ran has no counts.
  for (const file of filesIn(folder, '.gcno')) {
    const { status, stdout, stderr, error } = spawnSync('gcov',
      ['--json-format', '--stdout', file],
      { cwd: folder, encoding: 'utf8', maxBuffer: 1 << 30 });
    if (error) throw error;
    if (status !== 0) throw new Error(stderr);
    for (const line of stdout.split('\n').filter(Boolean)) {
      addGcovReport(files, JSON.parse(line), root);
    }
  }
  forgetClosingLines(files, root);
  return files;
}
