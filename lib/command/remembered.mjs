import { randomBytes } from 'node:crypto';
import {
  closeSync, constants, fstatSync, fsyncSync, mkdirSync, openSync, readFileSync,
  readdirSync, renameSync, unlinkSync, writeSync,
} from 'node:fs';
import { homedir } from 'node:os';
import path from 'node:path';
import process from 'node:process';

import visible from '../visible_text.js';
import { UsageError } from './usage.mjs';

const { quoted } = visible;

// A token is a secret: whoever has it sees the screen without being allowed to.
const folderMode = 0o700;
const fileMode = 0o600;

const ending = '.json';
// File systems take 255 bytes.
const longestFileName = 200;
const largestFile = 65_536;

/** A relative folder counts as none, as the rules for these folders say. */
function folder() {
  const stated = process.env.XDG_STATE_HOME;
  const state = stated && path.isAbsolute(stated) ? stated
    : path.join(homedir(), '.local', 'state');
  return path.join(state, 'linux-capture', 'remembered');
}

/** Any text as a file name in which a dot is not part of the name. */
function encoded(name) {
  const text = encodeURIComponent(name).replaceAll('.', '%2E');
  if (text === '' || text.length > longestFileName) {
    throw new UsageError(name === '' ? 'a remembered choice needs a name'
      : 'the name of the remembered choice is too long');
  }
  return text;
}

const fileOf = (name) => path.join(folder(), `${encoded(name)}${ending}`);

/** Throws for what cannot be the name of a choice. */
export function requireName(name) {
  encoded(name);
  return name;
}

function readChoice(file) {
  // What stands there may be anything by now.
  const descriptor = openSync(file,
    constants.O_RDONLY | constants.O_NOFOLLOW | constants.O_NONBLOCK);
  try {
    const status = fstatSync(descriptor);
    if (!status.isFile() || status.size > largestFile) {
      throw new Error('it is no file of this program');
    }
    const { restoreToken, savedAt } =
      JSON.parse(readFileSync(descriptor, 'utf8'));
    if (typeof restoreToken !== 'string' || !/^[^\n\0]+$/.test(restoreToken)) {
      throw new Error('there is no token in it');
    }
    return { restoreToken, savedAt: String(savedAt) };
  } finally {
    closeSync(descriptor);
  }
}

/** The token to restore the choice with; null where there is none. */
export function readToken(name) {
  try {
    return readChoice(fileOf(name)).restoreToken;
  } catch (error) {
    if (error.code !== 'ENOENT') {
      // What the file has in it must not be shown.
      const reason = error instanceof SyntaxError ? 'it is damaged'
        : error.message;
      console.error(`linux-capture: the choice ${
        quoted(name)} cannot be read and is asked for again: ${reason}`);
    }
    return null;
  }
}

/** Writes the whole of a file, or nothing of it. */
function replaceFile(file, text) {
  mkdirSync(path.dirname(file), { recursive: true, mode: folderMode });
  const unfinished = `${file}.${randomBytes(6).toString('hex')}.tmp`;
  const descriptor = openSync(unfinished, 'wx', fileMode);
  try {
    try {
      writeSync(descriptor, text);
      fsyncSync(descriptor);
    } finally {
      closeSync(descriptor);
    }
    renameSync(unfinished, file);
  } catch (error) {
    unlinkSync(unfinished);
    throw error;
  }
}

/** Removes the choice, and what a killed process left of it. */
export function forget(name) {
  const own = `${encoded(name)}.`;
  let files;
  try {
    files = readdirSync(folder()).filter((file) => file.startsWith(own));
  } catch (error) {
    if (error.code === 'ENOENT') return false;
    throw error;
  }
  for (const file of files) unlinkSync(path.join(folder(), file));
  return files.length > 0;
}

/**
 * Keeps what the desktop has given for the next time; without a token there is
 * none, as the one before is used up. A failure is no reason not to capture.
 */
export function remember(name, restoreToken) {
  try {
    if (restoreToken === null) {
      forget(name);
      console.error(`linux-capture: the desktop does not let ${
        quoted(name)} be remembered`);
    } else {
      replaceFile(fileOf(name), `${JSON.stringify(
        { restoreToken, savedAt: new Date().toISOString() })}\n`);
    }
  } catch (error) {
    console.error(`linux-capture: the choice ${
      quoted(name)} cannot be remembered: ${error.message}`);
  }
}

/** The names of all choices and when each was kept; never the tokens. */
export function rememberedChoices() {
  let files;
  try {
    files = readdirSync(folder());
  } catch {
    return [];
  }
  return files.filter((file) => file.endsWith(ending)).sort()
    .flatMap((file) => {
      try {
        const name = decodeURIComponent(file.slice(0, -ending.length));
        if (`${encoded(name)}${ending}` !== file) return [];
        const { savedAt } = readChoice(path.join(folder(), file));
        return [{ name, savedAt }];
      } catch {
        return [];
      }
    });
}
