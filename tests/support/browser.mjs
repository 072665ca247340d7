import { mkdtemp, readFile, rm } from 'node:fs/promises';
import { createServer } from 'node:http';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { collectText, endHelper, startHelper } from './processes.mjs';
import { until } from './until.mjs';

const page = (script) => `<!DOCTYPE html><meta charset="utf-8"><body><script>
  (async () => {
    const tell = (result) => fetch('/result',
      { method: 'POST', body: JSON.stringify(result) });
    try {
      tell(await (${script})());
    } catch (error) {
      tell({ error: String(error) });
    }
  })();
</script></body>`;

/** Sends a file as a web server does, in the part that is asked for. */
async function sendFile(file, request, response) {
  const bytes = await readFile(file);
  response.setHeader('accept-ranges', 'bytes');
  const [, first, last] =
    /^bytes=(\d+)-(\d*)$/.exec(request.headers.range ?? '') ?? [];
  if (first === undefined) {
    response.end(bytes);
    return;
  }
  const begin = Number(first);
  const end = last === '' ? bytes.length - 1 : Number(last);
  response.writeHead(206, {
    'content-range': `bytes ${begin}-${end}/${bytes.length}`,
  });
  response.end(bytes.subarray(begin, end + 1));
}

async function startServer(script, file) {
  const answer = {};
  const server = createServer(async (request, response) => {
    if (request.url === '/') {
      response.setHeader('content-type', 'text/html');
      response.end(page(script));
    } else if (request.url === '/file') {
      await sendFile(file, request, response);
    } else if (request.url === '/result') {
      const parts = await request.toArray();
      answer.result = JSON.parse(Buffer.concat(parts).toString());
      response.end();
    } else {
      response.writeHead(404).end();
    }
  });
  await new Promise((resolve) => {
    server.listen(0, '127.0.0.1', resolve);
  });
  const address = `http://127.0.0.1:${server.address().port}`;
  return { answer, server, address };
}

/**
 * Runs a function, given as text, on a page in Chromium and returns what it
 * resolves with. The page finds `file` at /file.
 */
export async function runInBrowser(script, file, limitMs = 60_000) {
  const { answer, server, address } = await startServer(script, file);
  const profile = await mkdtemp(path.join(tmpdir(), 'linux-capture-browser-'));
  const child = startHelper('chromium', [
    '--headless',
    // Chromium refuses to run as root with its sandbox.
    '--no-sandbox',
    '--disable-gpu',
    '--autoplay-policy=no-user-gesture-required',
    `--user-data-dir=${profile}`,
    address,
  ], { stdio: ['ignore', 'ignore', 'pipe'], env: { ...process.env,
    HOME: profile } });
  const errors = collectText(child.stderr);
  try {
    await until(() => answer.result, 'the page to tell its result', limitMs);
  } catch (error) {
    throw new Error(`${error.message}\n${errors.text}`);
  } finally {
    await endHelper(child);
    server.close();
    server.closeAllConnections();
    await rm(profile, { recursive: true, force: true, maxRetries: 10 });
  }
  if (answer.result.error !== undefined) throw new Error(answer.result.error);
  return answer.result;
}
