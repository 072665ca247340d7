import { createRequire } from 'node:module';

export const repositoryRoot = new URL('../../', import.meta.url);

/** The module as a host gets it: by requiring the repository's root. */
export const addon = createRequire(import.meta.url)('../../index.js');
