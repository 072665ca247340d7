import { chown, mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { collectText, endHelper, startHelper, waitForText } from
  './processes.mjs';

/** Knows no services, so that nothing starts but what a test starts. */
const configurationFor = (folder) => `<!DOCTYPE busconfig PUBLIC
  "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
  "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=${folder}/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
`;

/** Starts a session bus of its own; `user` is the { uid, gid } it runs as. */
export async function startSessionBus({ user } = {}) {
  const folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-bus-'));
  const file = path.join(folder, 'session.conf');
  await writeFile(file, configurationFor(folder));
  if (user !== undefined) await chown(folder, user.uid, user.gid);
  const child = startHelper('setpriv', ['--pdeathsig', 'KILL', 'dbus-daemon',
    '--nofork', '--print-address', `--config-file=${file}`],
  { ...user, stdio: ['ignore', 'pipe', 'pipe'] });
  const errors = collectText(child.stderr);
  const output = collectText(child.stdout);
  const stop = async (signal) => {
    await endHelper(child, signal);
    await rm(folder, { recursive: true, force: true });
  };
  try {
    const [, address] = await waitForText(child, output, /^(\S+)\n/,
      'the session bus is there');
    return {
      address,
      /** The bus stands still, as it does in a debugger, and goes on. */
      pause: () => child.kill('SIGSTOP'),
      resume: () => child.kill('SIGCONT'),
      stop,
      kill: () => endHelper(child, 'SIGKILL'),
    };
  } catch (error) {
    await stop();
    throw new Error(`${error.message}${errors.text}`);
  }
}
