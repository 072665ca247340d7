import process from 'node:process';

import { requireFfmpeg } from './recording/ffmpeg.mjs';
import { OutputFile } from './recording/output_file.mjs';
import { Pieces } from './recording/pieces.mjs';
import { PipeOutput, standardOutput } from './recording/pipe_output.mjs';
import { Replay } from './recording/replay.mjs';
import { SingleTarget } from './recording/single_target.mjs';
import { shownAddress } from './recording/stream_address.mjs';
import { StreamTarget } from './recording/stream_target.mjs';

/**
 * A name that a shell made of a descriptor: it is the first of the two
 * processes that has it.
 */
const nameHere = (name) =>
  name.replace(/^\/(dev|proc\/self)\/fd\//, `/proc/${process.ppid}/fd/`);

/** Where a recording goes, in words for people. */
export function describeTarget({ output, replay, limits }) {
  if (replay !== null) return `the last ${replay} seconds, for ${output.name}`;
  switch (output.kind) {
    case 'stream':
      return `to ${shownAddress(output.name)}`;
    case 'pipe':
      return output.name === standardOutput ? 'to the standard output'
        : `to ${output.name}`;
    default:
      return limits === null ? `into ${output.name}`
        : `into files numbered from ${output.name}`;
  }
}

/**
 * Takes what a recording goes to, before anybody chooses a source for nothing.
 * `report` is told of files and troubles, `tell` of a file that a killed
 * process would leave empty.
 */
export async function openTarget(options, { report, tell }) {
  const { output, limits, replay, audioFormat, overwrite } = options;
  const taken = ({ name, identity }) => tell({ name, identity });
  const onFile = (file) => report.file(file);
  const common = { audio: audioFormat, onFile, onTaken: taken };
  if (audioFormat.codec === 'opus' || output.kind === 'stream') {
    await requireFfmpeg();
  }
  if (output.kind === 'stream') {
    return new StreamTarget(output.name, {
      audio: audioFormat,
      onTrouble: (message) => report.trouble({ message }),
      onRecovered: (message) => report.recovered({ message }),
    });
  }
  if (output.kind === 'pipe') {
    return new SingleTarget(new PipeOutput(nameHere(output.name)),
      { audio: audioFormat });
  }
  if (replay !== null) {
    return new Replay(output.name, { ...common, seconds: replay });
  }
  if (limits !== null) {
    return new Pieces(output.name,
      { ...common, ...limits, mayReplace: overwrite });
  }
  const file = new OutputFile(output.name, { mayReplace: overwrite });
  // Another recording may be about to take a file of that name.
  if (file.identity !== null) taken(file);
  return new SingleTarget(file, { audio: audioFormat });
}
