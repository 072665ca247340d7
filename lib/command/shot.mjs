import process from 'node:process';

import session from '../session/index.js';
import { chooseSource } from './chosen_source.mjs';
import { OutputFile, removeLeftover } from './recording/output_file.mjs';
import { parseShot } from './shot_options.mjs';

export const parse = (args) => parseShot(args, process.env);
export const endsItself = true;

export const lookAfter = ({ file }, identity) => removeLeftover(file, identity);

async function take({ source, pointer }, stop, say) {
  return session.takeScreenshot({
    source: await chooseSource(source, 'capture', stop, say), pointer,
    signal: stop,
  });
}

const failure = (error) => Object.assign(
  new Error(`standard output cannot be written: ${error.message}`),
  { code: error.code });

/** What is told goes elsewhere: the picture is all of the output. */
async function writeToOutput(options, stop) {
  if (process.stdout.isTTY) {
    throw new Error('a picture is not for a terminal: name a file, or send ' +
      'standard output to a program');
  }
  const { data } = await take(options, stop, console.error);
  await new Promise((resolve, reject) => {
    process.stdout.write(data, (error) =>
      (error ? reject(failure(error)) : resolve()));
  });
}

async function writeToFile(options, { stop, tell }) {
  // First, so that nobody chooses a source for nothing.
  const output =
    new OutputFile(options.file, { mayReplace: options.overwrite });
  // Another program may be about to take a file of that name.
  if (output.identity !== null) tell(output.identity);
  try {
    const { data, width, height } = await take(options, stop, console.log);
    output.write(data, 0);
    output.close();
    if (output.failure !== null) throw output.failure;
    console.log(`${options.file}: ${width}x${height}, ${
      Math.ceil(data.length / 1e3)} kB`);
  } finally {
    output.close();
  }
}

/** Takes one picture; resolves with the exit status. */
export async function run(options, tools) {
  if (options.file === '-') await writeToOutput(options, tools.stop);
  else await writeToFile(options, tools);
  return 0;
}
