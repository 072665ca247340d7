import { readFile } from 'node:fs/promises';
import process from 'node:process';

import publishing from '../publish/index.js';
import session from '../session/index.js';
import visible from '../visible_text.js';
import { chooseSource } from './chosen_source.mjs';
import { scalingText, tellTroubles } from './notices.mjs';
import { parsePublish } from './publish_options.mjs';
import { askSecret } from './secret_prompt.mjs';
import { clockText } from './figures.mjs';
import { StatusLine } from './status_line.mjs';

const { quoted } = visible;

export const parse = (args) => parsePublish(args, process.env);
export const endsItself = true;

async function readToken({ from, file }, signal) {
  const firstLine = (text) => text.split('\n', 1)[0].trim();
  switch (from) {
    case 'environment':
      return process.env.LINUX_CAPTURE_TOKEN;
    case 'prompt':
      return firstLine(await askSecret('Token: ', signal));
    case 'file':
      try {
        return firstLine(await readFile(file, 'utf8'));
      } catch (error) {
        throw new Error(
          `the token cannot be read from ${quoted(file)} (${error.code})`,
          { cause: error });
      }
    default:
      return undefined;
  }
}

function leftOutText({ layersSent, branches, bitrateShare }) {
  const rest = bitrateShare < 1
    ? `${Math.round(bitrateShare * 100)} % of the bitrate`
    : `${layersSent} temporal layer${layersSent === 1 ? '' : 's'}`;
  return `too slow a network: ${rest}${
    branches > 0 ? `, ${branches} branches less` : ''}`;
}

function statusText({ seconds, stats }) {
  const { branches, roundTripMs, loss, leftOut } = stats;
  const sent = branches.reduce((sum, branch) => sum + branch.bitsPerSecond, 0);
  const parts = [clockText(seconds), stats.state,
    `${(sent / 1e6).toFixed(2)} Mbit/s`];
  if (roundTripMs !== null) parts.push(`${roundTripMs.toFixed(0)} ms away`);
  if (loss !== null) parts.push(`${(loss * 100).toFixed(0)} % lost`);
  if (leftOut !== null) parts.push(leftOutText(leftOut));
  return parts.join('  ');
}

function tellStates(publication) {
  publication.events.on('state', ({ state, error }) => {
    if (state === 'reconnecting') {
      console.error(`linux-capture: ${error.message}; trying again`);
    } else if (state === 'connected') {
      console.error('linux-capture: connected again');
    }
  });
}

async function send(publication) {
  const startedAtMs = performance.now();
  tellStates(publication);
  const line = new StatusLine(() => ({
    seconds: (performance.now() - startedAtMs) / 1000,
    stats: publication.stats(),
  }), { textOf: statusText });
  const end = await publication.ended;
  line.stop();
  console.log(
    `Published for ${clockText((performance.now() - startedAtMs) / 1000)}.`);
  return end;
}

/** Publishes until the capture or the way ends; gives the exit status. */
export async function run(options, { stop }) {
  const token = await readToken(options.token, stop);
  const source = await chooseSource(options.source, 'publish', stop);
  const { audio, video, url, audioBitrate } = options;
  const capture =
    await session.startCapture({ source, audio, video, signal: stop });
  try {
    tellTroubles(capture);
    const publication = await publishing.publish(capture,
      { url, token, audioBitrate, signal: stop });
    const scaling =
      scalingText(capture.branches[0], capture.sourceSize, video);
    if (scaling !== null) console.log(scaling);
    console.log(`Publishing with${
      capture.hasAudio ? '' : 'out'} sound. Ctrl-C ends it.`);
    const { error } = await send(publication);
    if (error !== null) throw error;
  } finally {
    await capture.stop();
  }
  const end = await capture.ended;
  if (end.error !== null) {
    console.error(`linux-capture: ${end.error.message}`);
  } else if (end.reason === 'source-ended') {
    console.log(`The source ended: ${end.detail}`);
  }
  return end.error === null ? 0 : 1;
}
