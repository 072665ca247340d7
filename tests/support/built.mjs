import process from 'node:process';
import { fileURLToPath } from 'node:url';

const preset = process.env.LINUX_CAPTURE_PRESET || 'release';

/** Full path of what the preset under test has built. */
export const built = (name) =>
  fileURLToPath(new URL(`../../build/${preset}/${name}`, import.meta.url));
