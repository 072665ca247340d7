import { execFile } from 'node:child_process';
import { existsSync } from 'node:fs';
import path from 'node:path';
import process from 'node:process';
import { promisify } from 'node:util';

const run = promisify(execFile);
const answerLimitMs = 10_000;

const name = 'org.freedesktop.portal.Desktop';
const object = '/org/freedesktop/portal/desktop';
const screenCast = 'org.freedesktop.portal.ScreenCast';

// Whichever of these is installed; all print the version as "... uint32 4" or
// "u 4".
const askers = [
  ['busctl', ['--user', 'get-property', name, object, screenCast, 'version']],
  ['gdbus', ['call', '--session', '--dest', name, '--object-path', object,
    '--method', 'org.freedesktop.DBus.Properties.Get', screenCast, 'version']],
  ['dbus-send', ['--session', '--print-reply', `--dest=${name}`, object,
    'org.freedesktop.DBus.Properties.Get', `string:${screenCast}`,
    'string:version']],
];

/** As systemd and D-Bus find it; without one they print a page. */
const hasSessionBus = (environment) =>
  Boolean(environment.DBUS_SESSION_BUS_ADDRESS) ||
  existsSync(path.join(environment.XDG_RUNTIME_DIR || '/nowhere', 'bus'));

async function askVersion(signal) {
  if (!hasSessionBus(process.env)) {
    return { problem: 'there is no session bus' };
  }
  for (const [command, args] of askers) {
    try {
      const { stdout } = await run(
        command, args, { timeout: answerLimitMs, signal });
      return { version: Number(/(?:uint32|u) (\d+)/.exec(stdout)?.[1]) };
    } catch (error) {
      if (error.code === 'ABORT_ERR') throw error;
      if (error.code !== 'ENOENT') {
        return { problem: (error.stderr || error.message).trim()
          .split('\n')[0] };
      }
    }
  }
  return { isUnknown: true,
    problem: 'none of busctl, gdbus and dbus-send is installed' };
}

/** False where a screen cast cannot be asked for. */
export async function isPortalThere(signal) {
  const { version, isUnknown = false } = await askVersion(signal);
  return isUnknown || version > 0;
}

/** Whether the desktop offers screen casts. */
export async function checkPortal() {
  const { version, problem } = await askVersion();
  const isUsable = version > 0;
  return {
    id: 'portal',
    title: 'Screen casts of the desktop portal',
    isUsable,
    detail: isUsable ? `version ${version}`
      : problem ?? 'the portal has no screen casts',
    remedy: isUsable ? null
      : 'In a desktop session, install xdg-desktop-portal and the one for ' +
        'the desktop: xdg-desktop-portal-gnome, -kde or -wlr.',
    packages: isUsable ? [] : ['xdg-desktop-portal'],
  };
}
