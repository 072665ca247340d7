import { parseArgs } from 'node:util';

export const usage = `usage: npm run demo -- [--seconds N] [--output FOLDER]

  --seconds N       how long to capture, 1 to 600 (default 5)
  --output FOLDER   where to write the files (default demo-output)`;

/** Reads the command line; throws an error whose message includes the usage. */
export function readOptions(args) {
  let values;
  try {
    ({ values } = parseArgs({
      args,
      options: {
        seconds: { type: 'string', default: '5' },
        output: { type: 'string', default: 'demo-output' },
        help: { type: 'boolean', default: false },
      },
    }));
  } catch (error) {
    throw new Error(`${error.message}\n${usage}`, { cause: error });
  }
  const seconds = Number(values.seconds);
  if (!(seconds >= 1 && seconds <= 600)) {
    throw new Error(`--seconds must be a number from 1 to 600\n${usage}`);
  }
  return { seconds, output: values.output, help: values.help };
}
