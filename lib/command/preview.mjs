import process from 'node:process';

import { openAddress } from '../preview/open_address.mjs';
import { PreviewServer } from '../preview/preview_server.mjs';
import session from '../session/index.js';
import { chooseSource } from './chosen_source.mjs';
import { scalingText, tellTroubles } from './notices.mjs';
import { parsePreview } from './preview_options.mjs';

export const parse = (args) => parsePreview(args, process.env);
export const endsItself = true;

function report(error) {
  console.error(`linux-capture: the preview met an error: ${error.message}`);
}

async function listen(port) {
  try {
    return await PreviewServer.listen(port, { report });
  } catch (error) {
    throw new Error(error.code === 'EADDRINUSE'
      ? `the port ${port} is in use; without --port a free one is taken`
      : `the preview cannot listen: ${error.message}`, { cause: error });
  }
}

function printAddress(address, hasAudio) {
  console.log(`The preview, for one browser, with${
    hasAudio ? '' : 'out'} sound:\n\n  ${address}\n\nCtrl-C ends it.`);
}

async function showUntilEnd(server, capture, { open, video }) {
  server.show(capture);
  tellTroubles(capture);
  const scaling =
    scalingText(capture.branches[0], capture.sourceSize, video);
  if (scaling !== null) console.log(scaling);
  printAddress(server.address, capture.hasAudio);
  const browser = open ? await openAddress(server.address) : null;
  browser?.failed.then((message) =>
    console.error(`linux-capture: no browser was opened: ${message}`));
  const end = await capture.ended;
  await browser?.forget();
  return end;
}

/** Shows the capture in a web page until it ends; gives the exit status. */
export async function run(options, { stop }) {
  // First, so that nobody chooses a source for nothing.
  const server = await listen(options.port);
  let end = null;
  try {
    const source = await chooseSource(options.source, 'show', stop);
    const { audio, video } = options;
    const capture =
      await session.startCapture({ source, audio, video, signal: stop });
    try {
      end = await showUntilEnd(server, capture, options);
    } finally {
      await capture.stop();
    }
  } finally {
    await server.close(end);
  }
  if (end.error !== null) {
    console.error(`linux-capture: ${end.error.message}`);
  } else if (end.reason === 'source-ended') {
    console.log(`The source ended: ${end.detail}`);
  }
  return end.error === null ? 0 : 1;
}
