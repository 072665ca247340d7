import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { collectText, endHelper, startHelper, waitForText } from
  './processes.mjs';

const port = 3478;
/** What it takes from its users, and where it passes that on from. */
export const relayPorts = [`${port}`, '20000-20100'];

/** Starts a server of TURN for one user at an address of this machine. */
export async function startRelay(address) {
  const folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-relay-'));
  const [first, last] = relayPorts[1].split('-');
  const child = startHelper('turnserver', ['-n', '--listening-ip', address,
    '--relay-ip', address, '--listening-port', `${port}`,
    '--min-port', first, '--max-port', last,
    '--lt-cred-mech', '--user', 'somebody:a;word', '--realm', 'tests',
    '--no-cli', '--no-tls', '--no-dtls', '--verbose', '--log-file', 'stdout',
    '--pidfile', path.join(folder, 'pid'), '--db', path.join(folder, 'users')],
  { stdio: ['ignore', 'pipe', 'pipe'] });
  const output = collectText(child.stdout);
  collectText(child.stderr);
  const stop = async () => {
    await endHelper(child);
    await rm(folder, { recursive: true, force: true });
  };
  try {
    await waitForText(child, output, /listener opened on/, 'the relay');
  } catch (error) {
    await stop();
    throw error;
  }
  return {
    stop,
    output,
    /** The header that tells of it. */
    link: (transport) => `<turn:${address}:${port}?transport=${transport}>; ` +
      'rel="ice-server"; username="somebody"; credential="a;word"; ' +
      'credential-type="password"',
    /** How often somebody was given an address there. */
    countAllocations: () =>
      output.text.match(/ALLOCATE processed, success/g)?.length ?? 0,
  };
}
