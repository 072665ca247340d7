import { randomUUID } from 'node:crypto';
import { existsSync } from 'node:fs';
import path from 'node:path';
import { runTool } from '../../support/pipewire_objects.mjs';
import { startPortalProgram } from '../../support/portal_program.mjs';

const store = 'org.freedesktop.impl.portal.PermissionStore';

function serviceProgram(name) {
  const found = ['/usr/libexec', '/usr/lib', '/usr/lib/xdg-desktop-portal']
    .map((folder) => path.join(folder, name))
    .find((file) => existsSync(file));
  if (found === undefined) throw new Error(`${name} is not installed`);
  return found;
}

/**
 * Starts the desktop portal with GNOME's backend on a desktop of Mutter's. Its
 * dialog cannot be answered there; it is not shown for a choice that was kept.
 */
export async function startGnomePortal(desktop) {
  const start = (program, name) => desktop.startProgram(
    serviceProgram(program), [], program, () => desktop.hasName(name));
  // The portal looks for the other two when it starts.
  await start('xdg-permission-store', store);
  const backend = await start('xdg-desktop-portal-gnome',
    'org.freedesktop.impl.portal.desktop.gnome');
  const portal = await start('xdg-desktop-portal',
    'org.freedesktop.portal.Desktop');
  return {
    backend,
    portal,
    /** Writes down that the monitor was once chosen; returns the token. */
    async keepChoice() {
      const token = randomUUID();
      await runTool(desktop, 'gdbus', ['call', '--session', '--dest', store,
        '--object-path', `/${store.replaceAll('.', '/')}`,
        '--method', `${store}.Set`, 'screencast', 'true', token,
        // A program outside any sandbox has no name.
        '{\'\': [\'yes\']}',
        '<(\'GNOME\', uint32 1, <(int64 1, int64 1, [(uint32 0, uint32 1, ' +
        '<\'MetaVendor:MetaVirtualMonitor:0x00\'>)])>)>']);
      return token;
    },
    startPortalProgram: (args, token) => startPortalProgram(args,
      { ...desktop.options, token }),
  };
}
