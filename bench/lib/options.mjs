import { parseArgs } from 'node:util';

import { scenarios } from './scenarios.mjs';
import { sides } from './sides.mjs';

const defaults = Object.freeze({ seconds: 8, runs: 3 });

// Of many captures, whose figures are read beside each other.
const growthDefaults = Object.freeze({ seconds: 5, runs: 1 });

const names = (list) => list.map(({ name }) => name).join(' ');

export const usage = `usage: npm run bench -- [option]...

  --seconds N    how long each run is measured, 2 to 600 (default 8, with
                 --growth 5)
  --runs N       how often each side runs, 1 to 50 (default 3, with --growth 1)
  --only A,B     only these scenarios and sides; a kind that is not named
                 stays whole
  --markdown     print Markdown tables
  --profile      only show where the module's processor time goes
  --calls        only measure single calls and functions
  --growth       only measure how the cost grows with size, rate, branches and
                 layers; with --quick a few captures instead of all
  --publish      only measure what it costs to publish a capture

scenarios: ${names(scenarios)}
sides:     ${names(sides)}`;

function numberOf(values, name, low, high) {
  const value = Number(
    values[name] ?? (values.growth ? growthDefaults : defaults)[name]);
  if (!(value >= low && value <= high)) {
    throw new Error(
      `--${name} must be a number from ${low} to ${high}\n${usage}`);
  }
  return value;
}

function chosen(list, wanted) {
  const found = list.filter(({ name }) => wanted.includes(name));
  return found.length > 0 ? found : [...list];
}

/** Reads the command line; throws an error whose message includes the usage. */
export function readOptions(args) {
  let values;
  try {
    ({ values } = parseArgs({
      args,
      options: {
        seconds: { type: 'string' },
        runs: { type: 'string' },
        only: { type: 'string', default: '' },
        markdown: { type: 'boolean', default: false },
        profile: { type: 'boolean', default: false },
        calls: { type: 'boolean', default: false },
        growth: { type: 'boolean', default: false },
        quick: { type: 'boolean', default: false },
        publish: { type: 'boolean', default: false },
        help: { type: 'boolean', default: false },
      },
    }));
  } catch (error) {
    throw new Error(`${error.message}\n${usage}`, { cause: error });
  }
  const wanted = values.only.split(',').filter((name) => name !== '');
  const known = [...scenarios, ...sides].map(({ name }) => name);
  for (const name of wanted) {
    if (!known.includes(name)) {
      throw new Error(`--only does not know "${name}"\n${usage}`);
    }
  }
  if (values.quick && !values.growth) {
    throw new Error(`--quick is for --growth\n${usage}`);
  }
  const runs = numberOf(values, 'runs', 1, 50);
  return {
    seconds: numberOf(values, 'seconds', 2, 600),
    runs: Math.floor(runs),
    scenarios: chosen(scenarios, wanted),
    sides: chosen(sides, wanted),
    markdown: values.markdown,
    profile: values.profile,
    calls: values.calls,
    growth: values.growth,
    quick: values.quick,
    publish: values.publish,
    help: values.help,
  };
}
