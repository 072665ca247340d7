import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

const run = promisify(execFile);
// Not the number of nobody, whose threads others may start and end.
const nobody = String(60_000 + process.pid % 5_000);

/**
 * The limit on threads does not hold for root, so a host of a test that runs
 * as root becomes a user of its own.
 */
export const asOrdinaryUser = process.getuid() === 0
  ? ['setpriv', `--reuid=${nobody}`, `--regid=${nobody}`, '--clear-groups']
  : [];

/**
 * Sets the soft limit on the threads of a host that was started as an ordinary
 * user; returns how to lift it again.
 */
export async function limitThreads(pid, value) {
  const limit = async (...args) => {
    const [command, ...rest] =
      [...asOrdinaryUser, 'prlimit', '--pid', String(pid), ...args];
    return (await run(command, rest)).stdout;
  };
  const [soft, hard] = (await limit('--nproc', '--raw', '--noheadings',
    '--output', 'SOFT,HARD')).trim().split(/\s+/);
  const set = (wanted) => limit(`--nproc=${wanted}:${hard}`);
  await set(value);
  return () => set(soft);
}

/** How many threads the user of a process has, all processes together. */
export async function threadsOfUser(pid) {
  const { stdout: user } = await run('ps', ['-o', 'uid=', '-p', String(pid)]);
  const { stdout } = await run('ps', ['-eLo', 'uid=']);
  return stdout.split('\n')
    .filter((line) => line.trim() === user.trim()).length;
}
