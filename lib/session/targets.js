'use strict';

const { CaptureError } = require('./errors.js');
const {
  describeFailure, endProgram, runProgram, startProgram,
} = require('./programs.js');

const program = 'linux-capture-targets';
const parts = Object.freeze({ pipewire: '--pipewire', x11: '--x11' });

/**
 * What can be captured at this moment: `applications`, `system` and `inputs`
 * (sound), `monitors` and `windows` (X11). What cannot be listed is null, and
 * `problems` says why. `only` names one part, "pipewire" or "x11"; `signal`
 * gives up.
 */
async function listTargets({ only, signal } = {}) {
  if (only !== undefined && !Object.hasOwn(parts, only)) {
    throw new CaptureError('ERR_CAPTURE_ARGUMENT',
      'only must be "pipewire" or "x11"');
  }
  const result = await runProgram(
    program, only === undefined ? [] : [parts[only]], { signal });
  if (result.code !== 0) {
    throw new CaptureError('ERR_CAPTURE_PROGRAM',
      describeFailure(program, result));
  }
  return targetsIn(result.stdout);
}

function targetsIn(line) {
  try {
    const { applications = null, system = null, inputs = null,
      monitors = null, windows = null, problems = [] } = JSON.parse(line);
    return { applications, system, inputs, monitors, windows, problems };
  } catch (error) {
    throw new CaptureError('ERR_CAPTURE_PROGRAM',
      `${program} printed something else than its list`, { cause: error });
  }
}

/**
 * Listens to the sound that plays. `onTargets` gets the list as it is, and
 * again whenever it changes; `onEnd` gets an error when the listening has ended
 * without `stop()`. It does not keep the process alive.
 */
function followSound({ onTargets, onEnd }) {
  let isOver = false;
  const end = (error) => {
    if (isOver) return;
    isOver = true;
    endProgram(run);
    if (error !== null) onEnd(error);
  };
  const onLine = (line) => {
    if (isOver) return;
    try {
      onTargets(targetsIn(line));
    } catch (error) {
      end(error);
    }
  };
  const run = startProgram(program, ['--follow'], { onLine });
  run.ended.then((result) => end(new CaptureError('ERR_CAPTURE_PROGRAM',
    describeFailure(program, result))));
  for (const handle of [run.child, ...run.child.stdio]) handle.unref();
  return { stop: () => end(null) };
}

/** One part of the lists, which has to be there. */
async function listPart(part, key, signal) {
  const targets = await listTargets({ only: part, signal });
  if (targets[key] !== null) return targets;
  const problem = targets.problems.find((entry) => entry.part === part);
  throw new CaptureError(
    part === 'x11' ? 'ERR_CAPTURE_NO_DISPLAY' : 'ERR_CAPTURE_NO_PIPEWIRE',
    problem?.message ?? `${program} could not list ${key}`);
}

const listX11 = async (key, signal) =>
  (await listPart('x11', key, signal))[key];
const listMonitors = (signal) => listX11('monitors', signal);
const listWindows = (signal) => listX11('windows', signal);
const listSound = (signal) => listPart('pipewire', 'applications', signal);

module.exports = {
  followSound, listMonitors, listSound, listTargets, listWindows,
};
