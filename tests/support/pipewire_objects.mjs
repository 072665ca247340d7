import { execFile } from 'node:child_process';
import { promisify } from 'node:util';
import { until } from './until.mjs';

const run = promisify(execFile);

/** Runs one of PipeWire's own tools in a session; returns what it printed. */
export async function runTool(session, command, args) {
  const { stdout } = await run(command, args,
    { ...session.options, maxBuffer: 1 << 26, timeout: 20_000 });
  return stdout;
}

function nodeOf({ id, info }) {
  const { props } = info;
  return {
    id,
    serial: props['object.serial'],
    name: props['node.name'],
    mediaClass: props['media.class'],
    state: info.state,
    processId: props['application.process.id'],
  };
}

/** Everything the daemon knows of at this moment. */
export async function readObjects(session) {
  const text = await runTool(session, 'pw-dump', []);
  // A client that comes or goes meanwhile makes the tool print more than one
  // list; the first one is whole.
  const end = text.indexOf('\n]\n');
  const objects = JSON.parse(end === -1 ? text : text.slice(0, end + 2));
  const nodes = objects
    .filter(({ type, info }) => type === 'PipeWire:Interface:Node' && info)
    .map(nodeOf);
  const links = objects
    .filter(({ type, info }) => type === 'PipeWire:Interface:Link' && info)
    .map(({ info }) => ({
      from: info['output-node-id'],
      to: info['input-node-id'],
      state: info.state,
    }));
  return {
    nodes,
    links,
    nodeNamed: (wanted) => nodes.find(({ name }) => name === wanted),
  };
}

export function waitUntilNodeIsGone(session, name) {
  return until(async () => !(await readObjects(session)).nodeNamed(name),
    `the node ${name} to go`, 20_000);
}
