import { spawnSync } from 'node:child_process';
import {
  cpSync, mkdirSync, mkdtempSync, rmSync, writeFileSync,
} from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { after, before } from 'node:test';

import { packDependencies, packProject, root, runProgram } from './packed.mjs';
import { startHelper } from './processes.mjs';
import { startXvfb } from './xvfb.mjs';

const script = path.join(root, 'scripts/root.sh');

/**
 * Gives the calling test file a new, bare system with a project folder, the
 * packed project and its dependencies in it, and a display. The fields of the
 * returned object are filled before the first test runs.
 */
export function useCleanRoot() {
  const context = { project: '/project',
    processor: process.env.LINUX_CAPTURE_PROCESSOR ?? process.arch };
  const options = () =>
    ({
    env: { ...process.env, DISPLAY: context.xvfb.display }, timeout: 1_200_000,
  });
  /** Runs a command in the system, in the folder of the project. */
  context.inside = (...command) => runProgram('bash',
    [script, 'enter', context.system, context.project, ...command], options());
  /** Starts one that the caller ends. */
  context.start = (...command) => startHelper('bash',
    [script, 'enter', context.system, context.project, ...command],
    { ...options(), stdio: ['ignore', 'pipe', 'pipe'] });
  /** Where a file of the project lies for this machine. */
  context.file = (name) => path.join(context.system, context.project, name);

  before(async () => {
    const bare = process.env.LINUX_CAPTURE_BARE_ROOT;
    if (!bare) throw new Error('run it by "npm run test:matrix"');
    context.folder = mkdtempSync(path.join(path.dirname(bare), 'clean-'));
    context.system = path.join(context.folder, 'root');
    const { status, stderr } = spawnSync('cp',
      ['-a', '--reflink=auto', bare, context.system], { encoding: 'utf8' });
    if (status !== 0) throw new Error(stderr);
    mkdirSync(context.file(''));
    writeFileSync(context.file('package.json'), '{ "private": true }\n');
    const files = [packProject(context.folder).file,
      ...packDependencies(context.folder)];
    for (const file of files) {
      cpSync(file, context.file(path.basename(file)));
    }
    context.packages = files.map((file) => `./${path.basename(file)}`);
    context.xvfb = await startXvfb();
    const update = context.inside('apt-get', 'update', '-q');
    if (update.status !== 0) throw new Error(update.output);
  });
  after(async () => {
    await context.xvfb?.stop();
    if (context.folder !== undefined) {
      rmSync(context.folder, { recursive: true });
    }
  });
  return context;
}
