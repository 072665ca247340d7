import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

const run = promisify(execFile);
const nobody = '65534';

/**
 * The limit on threads does not hold for root, so a host of a test that runs
 * as root becomes nobody.
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
