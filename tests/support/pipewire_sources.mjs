import { writeFile } from 'node:fs/promises';
import path from 'node:path';
import { built } from './built.mjs';
import { feedInput } from './pipewire.mjs';
import { readObjects } from './pipewire_objects.mjs';
import { collectText, endHelper, hasEnded, startHelper, waitForText } from
  './processes.mjs';
import { until } from './until.mjs';
import { wavOf } from './wav.mjs';

const producerProgram = built('producer');

/**
 * Starts a process that offers numbered pictures as a screen cast does. It
 * takes the commands of producer/producer.cc.
 */
export async function startVideo(session, {
  name = 'screen', width = 640, height = 360, format = 'BGRx', fps = 30,
  rates = 'fixed', hasTimestamps = true, clickEvery, toneHertz,
} = {}) {
  const args = [
    '--name', name, '--size', `${width}x${height}`, '--format', format,
    '--fps', String(fps), '--rates', rates,
  ];
  if (!hasTimestamps) args.push('--no-timestamps');
  if (clickEvery !== undefined) args.push('--click-every', String(clickEvery));
  if (toneHertz !== undefined) args.push('--tone', String(toneHertz));
  const child = startHelper(producerProgram, args,
    { ...session.options, stdio: ['pipe', 'pipe', 'pipe'] });
  child.stdin.on('error', () => {});
  const output = collectText(child.stdout);
  const errors = collectText(child.stderr);
  const node = await until(async () => {
    if (hasEnded(child)) {
      throw new Error(`${name} ended: ${output.text}${errors.text}`);
    }
    return (await readObjects(session)).nodeNamed(name);
  }, `${name} to be offered`, 20_000);
  return {
    node,
    child,
    output,
    width,
    height,
    fps,
    command: (line) => child.stdin.write(`${line}\n`),
    /** When the pictures left that were sent on command, on the monotonic
     * clock in microseconds, by their numbers. */
    sentUs: () => new Map(
      Array.from(output.text.matchAll(/^sent (\d+) at=(\d+)/gm),
        ([, number, at]) => [Number(number), Number(at)])),
    waitFor: (pattern, what) => waitForText(child, output, pattern, what),
    stop: () => endHelper(child),
    kill: () => endHelper(child, 'SIGKILL'),
  };
}

/**
 * Plays a sound in a process of its own; `sound` is what wavOf takes, and
 * `properties` are more of the stream's, in PipeWire's own notation. It plays to
 * the default sink, to the sink `to`, or into the microphone `input`. Returns
 * once the player is linked and therefore really plays.
 */
export async function startPlayer(session,
  { name, properties = '', to, input, ...sound }) {
  const file = path.join(session.root, `${name}.wav`);
  await writeFile(file, wavOf(sound));
  const child = startHelper('pw-play',
    ['-P', `{ node.name=${name} ${properties} }`,
      // 0 is for no target at all.
      ...input === undefined ? [] : ['--target', '0'],
      ...to === undefined ? [] : ['--target', String(to.serial)], file],
    { ...session.options, stdio: ['ignore', 'ignore', 'pipe'] });
  const errors = collectText(child.stderr);
  if (input !== undefined) await feedInput(session, { player: name, input });
  const node = await until(async () => {
    if (hasEnded(child)) throw new Error(`${name} ended: ${errors.text}`);
    const { links, nodeNamed } = await readObjects(session);
    const found = nodeNamed(name);
    return found !== undefined &&
      links.some(({ from }) => from === found.id) && found;
  }, `${name} to play`, 20_000);
  return {
    node,
    serial: node.serial,
    child,
    stop: () => endHelper(child),
    kill: () => endHelper(child, 'SIGKILL'),
  };
}

/**
 * A third process that holds a connection to the daemon and does nothing with
 * it, as a portal helper does with the descriptor that the portal gave it.
 */
export async function startHolder(session) {
  const child = startHelper(process.execPath, ['--eval', `
    const socket = require('node:net').connect(${
  JSON.stringify(session.socket)});
    socket.pause();  // Nothing may read what is meant for the capture.
    socket.once('connect', () => console.log('fd=' + socket._handle.fd));
    process.stdin.resume().once('end', () => process.exit());
  `], { ...session.options, stdio: ['pipe', 'pipe', 'inherit'] });
  child.stdin.on('error', () => {});
  const output = collectText(child.stdout);
  const [, fd] = await waitForText(child, output, /fd=(\d+)\n/,
    'the holder is connected');
  return {
    pid: child.pid,
    fd: Number(fd),
    stop: () => {
      child.stdin.end();
      return endHelper(child);
    },
  };
}
