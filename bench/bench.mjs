// Captures the same screen with this module and with its peers, side by side,
// and prints what each of them costs and delivers. See README.md.
import process from 'node:process';

import { startXvfb } from '../tests/support/xvfb.mjs';
import { measureCalls } from './calls.mjs';
import { measureGrowth } from './growth.mjs';
import { describeMachine } from './lib/machine.mjs';
import { readOptions, usage } from './lib/options.mjs';
import { profileModule } from './lib/profile.mjs';
import { scenarioReport } from './lib/report.mjs';
import { screen } from './lib/scenarios.mjs';
import { startBenchScene } from './lib/scene.mjs';
import { runSide } from './lib/side_run.mjs';
import { measurePublication } from './publish.mjs';

const note = (text) => process.stderr.write(`${text}\n`);
const print = (lines) => console.log(`${lines.join('\n')}\n`);

/** One run; a side that fails may try once more. */
async function runOnce(side, scenario, options) {
  try {
    return await runSide(side, scenario, options);
  } catch (error) {
    note(`${side.name} failed and runs again: ${error.message}`);
    return runSide(side, scenario, options);
  }
}

/** All runs of one scenario, a run of every side before the next of any. */
async function runScenario(scenario, display, options) {
  const { seconds, runs, sides } = options;
  const results = Object.fromEntries(sides.map(({ name }) => [name, []]));
  const scene = await startBenchScene(display, scenario.scene);
  try {
    for (let run = 1; run <= runs; run += 1) {
      for (const side of sides) {
        note(`${scenario.name}, run ${run} of ${runs}: ${side.name}`);
        results[side.name].push(
          await runOnce(side, scenario, { scene, seconds }));
      }
    }
  } finally {
    await scene.stop();
  }
  return results;
}

async function profileScenario(scenario, display, options) {
  const scene = await startBenchScene(display, scenario.scene);
  try {
    note(`${scenario.name}: profile`);
    return [`== ${scenario.name}`, '',
      ...await profileModule(scenario, scene, options)];
  } finally {
    await scene.stop();
  }
}

async function main() {
  const options = readOptions(process.argv.slice(2));
  if (options.help) {
    console.log(usage);
    return;
  }
  print(describeMachine());
  if (options.growth) {
    print(await measureGrowth(options));
    return;
  }
  if (options.publish) {
    print(await measurePublication(options));
    return;
  }
  const xvfb = await startXvfb(screen);
  try {
    if (options.calls) {
      print(await measureCalls(xvfb.display, options));
      return;
    }
    for (const scenario of options.scenarios) {
      print(options.profile
        ? await profileScenario(scenario, xvfb.display, options)
        : scenarioReport(scenario,
          await runScenario(scenario, xvfb.display, options), options));
    }
  } finally {
    await xvfb.stop();
  }
}

// Ending in order lets the helpers and folders of this process end with it.
process.once('SIGINT', () => process.exit(130));
process.once('SIGTERM', () => process.exit(143));

try {
  await main();
} catch (error) {
  console.error(`bench: ${error.message}`);
  process.exitCode = 1;
}
