import { createRequire } from 'node:module';

export const repositoryRoot = new URL('../../', import.meta.url);

const require = createRequire(import.meta.url);

/** The module as a host gets it: by requiring the repository's root. */
export const addon = require('../../index.js');
