import { readdirSync } from 'node:fs';
import path from 'node:path';
import { runTool } from '../../support/pipewire_objects.mjs';
import { startCompositor } from './compositor.mjs';

/** What Mutter calls the first monitor that it is started with. */
export const monitorName = 'Meta-0';

async function hasName(desktop, name) {
  return /true/.test(await runTool(desktop, 'dbus-send', [
    '--session', '--print-reply', '--dest=org.freedesktop.DBus',
    '/org/freedesktop/DBus', 'org.freedesktop.DBus.NameHasOwner',
    `string:${name}`]));
}

async function startProgram(desktop) {
  const compositor = await desktop.startProgram('mutter',
    ['--headless', '--wayland', '--no-x11', '--virtual-monitor',
      `${desktop.size.width}x${desktop.size.height}`],
    'the compositor', () => hasName(desktop, 'org.gnome.Mutter.ScreenCast'),
    // As a member of a session of GNOME it would wait for its manager.
    { ...desktop.environment, XDG_CURRENT_DESKTOP: '' });
  desktop.environment.WAYLAND_DISPLAY = path.basename(
    readdirSync(desktop.environment.XDG_RUNTIME_DIR)
      .find((name) => /^wayland-\d+$/.test(name)));
  return compositor;
}

/**
 * Starts GNOME's compositor with a monitor that exists in memory alone, a
 * session bus and PipeWire. It needs no graphics card and no login daemon, and
 * runs as root too. Its streams are those of programs/mutter_cast.cc.
 */
export async function startMutter({ width = 640, height = 360 } = {}) {
  const desktop = await startCompositor(
    { name: 'GNOME', size: { width, height }, caster: 'mutter_cast' },
    startProgram);
  desktop.hasName = (name) => hasName(desktop, name);
  return desktop;
}
