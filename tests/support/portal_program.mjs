import { once } from 'node:events';
import { built } from './built.mjs';
import { collectText, endHelper, startHelper, waitForText } from
  './processes.mjs';

export const portalProgram = built('linux-capture-portal');
const fakePortalProgram = built('fake_portal');

/** The environment of a desktop session with this bus, or without any. */
export function environmentWithBus(address) {
  const environment = { ...process.env };
  delete environment.DBUS_SESSION_BUS_ADDRESS;
  delete environment.DISPLAY;
  environment.XDG_RUNTIME_DIR = '/nowhere';
  if (address !== undefined) environment.DBUS_SESSION_BUS_ADDRESS = address;
  return environment;
}

/**
 * Starts linux-capture-portal, with a restore token where one is given;
 * `options` are those of spawn.
 */
export function startPortalProgram(args = [],
  { command = portalProgram, token, ...options } = {}) {
  const child = startHelper(command,
    token === undefined ? args : [...args, '--restore-token-stdin'],
    { stdio: ['pipe', 'pipe', 'pipe'], ...options });
  child.stdin?.on('error', () => {});
  if (token !== undefined) child.stdin.write(`${token}\n`);
  const output = collectText(child.stdout);
  const errors = collectText(child.stderr);
  const closed = once(child, 'close');
  return {
    child,
    output,
    errors,
    /** The granted stream. */
    async report() {
      const [line] = await waitForText(child, output, /^.*\n/,
        'the stream is granted').catch((error) => {
        throw new Error(`${error.message}${errors.text}`);
      });
      return JSON.parse(line);
    },
    /** Closes the input, which asks the program to end. */
    close: () => child.stdin.end(),
    /** How it ended; a program that hangs is killed, which shows here. */
    async end(timeoutMs = 20_000) {
      const timer = setTimeout(() => child.kill('SIGKILL'), timeoutMs);
      const [status, signal] = await closed;
      clearTimeout(timer);
      return { status, signal, stdout: output.text, stderr: errors.text };
    },
    stop: () => endHelper(child),
  };
}

/** Starts the portal of fake_portal/fake_portal.cc. */
export async function startFakePortal(address, args = []) {
  const child = startHelper(fakePortalProgram, args, {
    env: environmentWithBus(address), stdio: ['pipe', 'pipe', 'inherit'],
  });
  child.stdin.on('error', () => {});
  const output = collectText(child.stdout);
  const waitFor = (pattern, what) =>
    waitForText(child, output, pattern, what);
  await waitFor(/^ready$/m, 'the fake portal is ready');
  return {
    output,
    waitFor,
    /** Closes the session as a desktop does. */
    closeSession: () => child.stdin.write('close\n'),
    /** The portal stands still, as it does in a debugger, and goes on. */
    pause: () => child.kill('SIGSTOP'),
    resume: () => child.kill('SIGCONT'),
    stop: () => endHelper(child),
    kill: () => endHelper(child, 'SIGKILL'),
  };
}
