import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import process from 'node:process';

const folders = new Set();

const remove = (folder) => rmSync(folder, { recursive: true, force: true });

// An interrupted benchmark leaves nothing behind.
process.once('exit', () => folders.forEach(remove));

/** A folder of its own, removed by `removeFolder` or with the process. */
export function makeFolder(purpose) {
  const folder = mkdtempSync(path.join(tmpdir(), `linux-capture-${purpose}-`));
  folders.add(folder);
  return folder;
}

export function removeFolder(folder) {
  remove(folder);
  folders.delete(folder);
}
