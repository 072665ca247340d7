import { execFileSync, spawnSync } from 'node:child_process';
import process from 'node:process';

const mark = 'LINUX_CAPTURE_TEST_NETWORK';

/** The address of the one network card there. */
export const ownAddress = '10.77.0.1';

const rules = 'inet tests';

// A card that leads nowhere: programs that look for a way skip the loopback
// interface, and those that need a route find one. What is lost is lost where
// datagrams come in: a rule on their way out would be told to who sends.
const setup = [
  'ip link set lo up', 'ip link add card0 type bridge',
  `ip address add ${ownAddress}/24 dev card0`, 'ip link set card0 up',
  'ip route add default dev card0', `nft add table ${rules}`,
  `nft add chain ${rules} way '{ type filter hook input priority 0; }'`,
  'exec "$0" "$@"',
].join(' && ');

/**
 * Goes on in a network namespace of the test's own, from which nothing leaves
 * this machine. To be called first by a file of tests.
 */
export function enterOwnNetwork() {
  if (process.env[mark] !== undefined) return;
  const { status, signal, error } = spawnSync('unshare',
    [...process.getuid() === 0 ? [] : ['--map-root-user'], '--net',
      'sh', '-c', setup, process.execPath, ...process.execArgv,
      ...process.argv.slice(1)],
    { stdio: 'inherit', env: { ...process.env, [mark]: '1' } });
  if (error !== undefined) throw error;
  process.exit(signal === null ? status : 1);
}

const setRule = (rule) => execFileSync('nft', ['-f', '-'], {
  input: `flush chain ${rules} way\n${
    rule === null ? '' : `add rule ${rules} way ${rule}\n`}`,
});

/** Loses such a share of all datagrams in the test's network from now on. */
export const loseDatagrams = (percent) => setRule(percent === 0 ? null
  : `meta l4proto udp numgen random mod 100 <= ${percent - 1} counter drop`);

/** Loses all datagrams but those from and to these ports. */
export function passOnly(ports) {
  const others = `!= { ${ports.join(', ')} }`;
  setRule(`udp sport ${others} udp dport ${others} drop`);
}

/** How many were lost since then. */
export function countLost() {
  const listed =
    execFileSync('nft', ['list', 'chain', ...rules.split(' '), 'way']);
  return Number(/counter packets (\d+)/.exec(listed)?.[1] ?? 0);
}
