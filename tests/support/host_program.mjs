// The process that a fault is done to. It runs the functions that the test
// sends it, one line of JSON each, and answers each with one line.
import { createInterface } from 'node:readline';
import { addon } from './addon.mjs';
import { collect } from './capture.mjs';
import { decodeToRgb } from './decode.mjs';
import { colourAt, readNumber } from './picture.mjs';
import { until } from './until.mjs';

const tools = {
  addon,
  collected: collect(),
  until,
  /** What a test keeps in this process from one call to the next. */
  kept: {},
  /** The numbers of the scene's pictures since the setup; null for others. */
  async numbers() {
    const { pictures } = await decodeToRgb(tools.collected.ofBranch(0));
    return pictures.map(readNumber);
  },
  /** The colour of the last picture at a place in parts of one. */
  async lastColour(x = 0.5, y = 0.5) {
    const { pictures } = await decodeToRgb(tools.collected.ofBranch(0));
    return colourAt(pictures.at(-1), x, y);
  },
};

/** The text of a function as a function again. */
const functionOf = (source) => (0, eval)(`(${source})`);

async function answer({ source, args }) {
  try {
    return { value: await functionOf(source)(tools, ...args) };
  } catch (error) {
    return { error: { name: error.name, message: error.message } };
  }
}

for await (const line of createInterface({ input: process.stdin })) {
  process.stdout.write(`${JSON.stringify(await answer(JSON.parse(line)))}\n`);
}
addon.stopCapture();
