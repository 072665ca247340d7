import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after } from 'node:test';

/** A folder for the files of the calling test file, which goes with it. */
export function useFolder() {
  const folder = mkdtempSync(path.join(tmpdir(), 'linux-capture-test-'));
  after(() => rmSync(folder, { recursive: true, force: true }));
  return folder;
}
