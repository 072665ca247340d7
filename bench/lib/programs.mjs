import { fileURLToPath } from 'node:url';

/** A program of this repository, built by `npm run bench`. */
export const program = (name) => fileURLToPath(
  new URL(`../../build/release/${name}`, import.meta.url));
