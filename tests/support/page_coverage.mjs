import { randomUUID } from 'node:crypto';
import { mkdirSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { fileURLToPath, pathToFileURL } from 'node:url';

// Where Node.js puts what its own processes have counted.
const folder = process.env.NODE_V8_COVERAGE;
const pageFolder =
  fileURLToPath(new URL('../../lib/preview/page/', import.meta.url));

/** Counts what a page of the preview runs, where coverage is measured. */
export async function startPageCoverage(page) {
  if (!folder) return;
  await page.call('Profiler.enable');
  await page.call('Profiler.startPreciseCoverage',
    { callCount: true, detailed: true });
}

/** Adds what the page has run to what Node.js has counted. */
export async function savePageCoverage(page) {
  if (!folder) return;
  const { result } = await page.call('Profiler.takePreciseCoverage');
  mkdirSync(folder, { recursive: true });
  writeFileSync(path.join(folder, `page-${randomUUID()}.json`), JSON.stringify({
    result: result.filter(({ url }) => /^http:.*\.mjs$/.test(url))
      .map(({ url, functions }) => ({
        url: pathToFileURL(
          path.join(pageFolder, path.posix.basename(new URL(url).pathname))).href,
        functions,
      })),
  }));
}
