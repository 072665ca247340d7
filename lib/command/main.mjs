import { createRequire } from 'node:module';
import process from 'node:process';

import visible from '../visible_text.js';
import { abortedStatus, isInner, runInner, runOuter } from './two_processes.mjs';
import { UsageError, commandNames, hintOf, usageOf } from './usage.mjs';

const commands = {
  doctor: () => import('./doctor.mjs'),
  forget: () => import('./forget.mjs'),
  preview: () => import('./preview.mjs'),
  publish: () => import('./publish.mjs'),
  record: () => import('./record.mjs'),
  shot: () => import('./shot.mjs'),
  sources: () => import('./sources.mjs'),
};

const { quoted } = visible;
const nothing = () => {};

function versionText() {
  const { version } = createRequire(import.meta.url)('../../package.json');
  return `linux-capture ${version}`;
}

function report(error) {
  const code = error.code === undefined ? '' : ` (${error.code})`;
  console.error(`linux-capture: ${error.message}${code}`);
}

async function runNamed([name, ...args]) {
  if (name === undefined || !Object.hasOwn(commands, name)) {
    throw new UsageError(`${name === undefined ? 'a command is missing'
      : `there is no command ${quoted(name)}`}; there are ${
      commandNames.join(', ')}`);
  }
  const { parse, run, endsItself = false, orders = {}, lookAfter = nothing } =
    await commands[name]();
  const options = parse(args);
  if (isInner()) {
    return runInner((stop, tell, given) =>
      run(options, { stop, tell, orders: given }), { endsItself, orders });
  }
  // The libraries print to the same terminal: what captures is a process of
  // its own, whose output is looked through.
  const { verbose = false } = options;
  let told = null;
  const status = await runOuter(process.argv[1], [name, ...args], {
    verbose, endsItself, orders, onTold: (what) => {
      told = what;
    },
  });
  if (told !== null) lookAfter(options, told);
  return status;
}

/** Runs the command line; resolves with the exit status. */
export async function runCommand(args) {
  const isHelp = args[0] === 'help';
  if (isHelp || args.includes('--help') || args.includes('-h')) {
    console.log(usageOf(args[isHelp ? 1 : 0]));
    return 0;
  }
  if (args.includes('--version')) {
    console.log(versionText());
    return 0;
  }
  try {
    return await runNamed(args);
  } catch (error) {
    if (error instanceof UsageError) {
      console.error(`linux-capture: ${error.message}\n${hintOf(args[0])}`);
      return 2;
    }
    if (error.code === 'ABORT_ERR') return abortedStatus;
    report(error);
    return 1;
  }
}
