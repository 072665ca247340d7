import { execFileSync } from 'node:child_process';
import { mkdtemp, readdir, rm, symlink } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';

/**
 * The environment of a GStreamer that has all installed plugins but those
 * named, and forgets nothing into the user's registry.
 */
export async function withoutPlugins(names, use) {
  const installed = execFileSync('pkg-config',
    ['--variable=pluginsdir', 'gstreamer-1.0'], { encoding: 'utf8' }).trim();
  const folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-test-'));
  try {
    for (const file of await readdir(installed)) {
      if (file.endsWith('.so') && !names.includes(file)) {
        await symlink(path.join(installed, file), path.join(folder, file));
      }
    }
    await use({
      GST_PLUGIN_SYSTEM_PATH_1_0: folder,
      GST_REGISTRY_1_0: path.join(folder, 'registry.bin'),
    });
  } finally {
    await rm(folder, { recursive: true, force: true });
  }
}
