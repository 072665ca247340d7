'use strict';

const { CaptureError } = require('./errors.js');
const { describeFailure, startProgram } = require('./programs.js');

const program = 'linux-capture-targets';
const parts = Object.freeze({ pipewire: '--pipewire', x11: '--x11' });

/**
 * What can be captured at this moment: `applications` and `system` (sound),
 * `monitors` and `windows` (X11). What cannot be listed is null, and
 * `problems` says why. `only` names one part, "pipewire" or "x11".
 */
async function listTargets({ only } = {}) {
  if (only !== undefined && !Object.hasOwn(parts, only)) {
    throw new CaptureError('ERR_CAPTURE_ARGUMENT',
      'only must be "pipewire" or "x11"');
  }
  const run = startProgram(program, only === undefined ? [] : [parts[only]]);
  run.child.stdin.end();
  const result = await run.ended;
  if (result.code !== 0) {
    throw new CaptureError('ERR_CAPTURE_PROGRAM',
      describeFailure(program, result));
  }
  try {
    const { applications = null, system = null, monitors = null,
      windows = null, problems = [] } = JSON.parse(result.stdout);
    return { applications, system, monitors, windows, problems };
  } catch (error) {
    throw new CaptureError('ERR_CAPTURE_PROGRAM',
      `${program} printed something else than its list`, { cause: error });
  }
}

/** One list, which has to be there. */
async function listOf(key, part) {
  const targets = await listTargets({ only: part });
  if (targets[key] !== null) return targets[key];
  const problem = targets.problems.find((entry) => entry.part === part);
  throw new CaptureError(
    part === 'x11' ? 'ERR_CAPTURE_NO_DISPLAY' : 'ERR_CAPTURE_NO_PIPEWIRE',
    problem?.message ?? `${program} could not list ${key}`);
}

const listMonitors = () => listOf('monitors', 'x11');
const listWindows = () => listOf('windows', 'x11');
const listApplications = () => listOf('applications', 'pipewire');
const listSinks = () => listOf('system', 'pipewire');

module.exports = {
  listApplications, listMonitors, listSinks, listTargets, listWindows,
};
