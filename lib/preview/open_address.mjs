import { spawn } from 'node:child_process';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import process from 'node:process';

const leadingPage = (address) => `<!doctype html>
<html lang="en">
<meta charset="utf-8">
<meta http-equiv="refresh" content="0;url=${address}">
<title>Opening the preview</title>
<p><a href="${address}">Continue</a></p>
</html>
`;

async function leadingFile(address) {
  const folder = await mkdtemp(path.join(
    process.env.XDG_RUNTIME_DIR || tmpdir(), 'linux-capture-preview-'));
  const file = path.join(folder, 'open.html');
  await writeFile(file, leadingPage(address), { mode: 0o600 });
  return { folder, file };
}

/**
 * Opens the address in the browser of the desktop. All users see the arguments
 * of a program, so the token goes by a file that only this user may read.
 * `failed` resolves with a message if no browser came; `forget` removes the
 * file.
 */
export async function openAddress(address) {
  let place;
  try {
    place = await leadingFile(address);
  } catch (error) {
    return { failed: Promise.resolve(error.message), forget: async () => {} };
  }
  const child =
    spawn('xdg-open', [place.file], { detached: true, stdio: 'ignore' });
  child.unref();
  const failed = new Promise((resolve) => {
    child.once('error', (error) => resolve(error.message));
    child.once('exit', (code) => {
      if (code !== 0) resolve(`xdg-open ended with status ${code}`);
    });
  });
  return {
    failed,
    forget: () => rm(place.folder, { recursive: true, force: true }),
  };
}
