import {
  closeSync, constants, fstatSync, ftruncateSync, lstatSync,
  openSync, statSync, unlinkSync, writeSync,
} from 'node:fs';
import path from 'node:path';

// A FIFO without a reader must not hold anybody up, and a terminal line must
// not become the one that Ctrl-C comes from.
const openFlags = constants.O_WRONLY | constants.O_NONBLOCK |
  constants.O_NOCTTY;
const newFlags = openFlags | constants.O_CREAT | constants.O_EXCL;

const reasons = {
  EDQUOT: 'the quota of the disk is used up',
  EFBIG: 'it may not become larger',
  ENOSPC: 'the disk is full',
};

function withCode(message, cause) {
  return Object.assign(new Error(message, { cause }), { code: cause.code });
}

/** Why a file cannot be opened, in words of the command. */
function openError(name, error) {
  switch (error.code) {
    case 'EEXIST':
      return new Error(`${name} exists already; --overwrite replaces it`,
        { cause: error });
    case 'ENOENT':
      return withCode(`the folder ${path.dirname(name)} does not exist`, error);
    case 'ENOTDIR':
      return withCode(`${path.dirname(name)} is not a folder`, error);
    case 'ENXIO':
    case 'EISDIR':
      return notRegular(name, error);
    default:
      return withCode(`${name} cannot be written: ${error.message}`, error);
  }
}

const containers = Object.freeze({ '.mp4': 'mp4', '.mkv': 'mkv' });

export const fileEndings = Object.freeze(Object.keys(containers));

/** What a file of this name holds, or undefined. */
export const containerOf = (name) =>
  containers[path.extname(name).toLowerCase()];

const identityOf = ({ dev, ino }) => `${dev}:${ino}`;

const notRegular = (name, cause) =>
  new Error(`${name} is not a regular file`, { cause });

/** A new file, or one that may be replaced; never one that came meanwhile. */
function openFile(name, mayReplace) {
  try {
    return { descriptor: openSync(name, newFlags, 0o666), isNew: true };
  } catch (error) {
    if (error.code !== 'EEXIST' || !mayReplace) throw openError(name, error);
  }
  try {
    return { descriptor: openSync(name, openFlags), isNew: false };
  } catch (error) {
    throw openError(name, error);
  }
}

/**
 * The file that a recording goes to. It is taken at once, so that nobody
 * chooses a source for nothing; what a replaced file held goes when there is
 * something to put in its place.
 *
 * What cannot be written is kept in `failure` and not thrown: whoever writes in
 * the background would wait for ever for what has failed. The file ends behind
 * the last whole piece then.
 */
export class OutputFile {
  #descriptor;
  #isNew;
  #isBegun = false;
  #hasName;
  #end = 0;
  failure = null;

  constructor(name, { mayReplace = false } = {}) {
    this.name = name;
    this.container = containerOf(name);
    const { descriptor, isNew } = openFile(name, mayReplace);
    this.#descriptor = descriptor;
    this.#isNew = isNew;
    const status = fstatSync(descriptor);
    if (!status.isFile()) {
      this.#close();
      throw notRegular(name);
    }
    // Some file systems never count names.
    this.#hasName = status.nlink > 0;
  }

  /** Which file it is, for `removeLeftover`; null for one that was there. */
  get identity() {
    return this.#isNew
      ? identityOf(fstatSync(this.#descriptor, { bigint: true })) : null;
  }

  /** Bytes in the file. */
  get size() {
    return this.#end;
  }

  write(data, position) {
    if (this.failure !== null) return;
    try {
      if (!this.#isBegun) ftruncateSync(this.#descriptor);
      this.#isBegun = true;
      let done = 0;
      while (done < data.length) {
        done += writeSync(this.#descriptor, data, done, data.length - done,
          position + done);
      }
      this.#end = Math.max(this.#end, position + data.length);
    } catch (error) {
      this.#fail(withCode(`${this.name} cannot be written: ${
        reasons[error.code] ?? error.message}`, error));
      return;
    }
    if (this.#hasName && fstatSync(this.#descriptor).nlink === 0) {
      this.#fail(new Error(`${this.name} was removed`));
    }
  }

  #fail(error) {
    this.failure = error;
    try {
      ftruncateSync(this.#descriptor, this.#end);
    } catch {
      // Players skip a piece that is not whole as well.
    }
  }

  #close() {
    closeSync(this.#descriptor);
    this.#descriptor = null;
  }

  /** Closes it; without anything in it a new file is not left behind. */
  close() {
    if (this.#descriptor === null) return;
    if (this.#isNew && this.#end === 0) this.#remove();
    try {
      this.#close();
    } catch (error) {
      // Where a file is on another machine, this may be the first to tell.
      this.failure ??= withCode(
        `${this.name} cannot be written: ${error.message}`, error);
    }
  }

  #remove() {
    const own = fstatSync(this.#descriptor);
    const there = statSync(this.name, { throwIfNoEntry: false });
    if (there?.ino === own.ino && there.dev === own.dev) unlinkSync(this.name);
  }
}

/**
 * Removes the file of that name if it is the one that `identity` tells of and
 * has nothing in it: what a process leaves that was killed.
 */
export function removeLeftover(name, identity) {
  const there = lstatSync(name, { bigint: true, throwIfNoEntry: false });
  if (there?.isFile() && there.size === 0n &&
    identityOf(there) === identity) unlinkSync(name);
}
