import { createRequire } from 'node:module';

export const repositoryRoot = new URL('../../', import.meta.url);

const require = createRequire(import.meta.url);

/**
 * The module as a host gets it: by requiring the repository's root. A module
 * file of another preset is named by LINUX_CAPTURE_ADDON.
 */
export const addon =
  require(process.env.LINUX_CAPTURE_ADDON ?? '../../index.js');
