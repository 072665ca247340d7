import process from 'node:process';
import { createInterface } from 'node:readline/promises';
import { Writable } from 'node:stream';

/** Asks for one line that is not shown; a pipe gives its first line. */
export async function askSecret(question, signal) {
  const isTerminal = process.stdin.isTTY === true;
  if (isTerminal) process.stderr.write(question);
  const lines = createInterface({
    input: process.stdin,
    // What is typed is echoed to nowhere.
    output: new Writable({ write: (chunk, encoding, done) => done() }),
    terminal: isTerminal,
  });
  try {
    return await lines.question('', { signal });
  } finally {
    lines.close();
    if (isTerminal) process.stderr.write('\n');
    process.stdin.unref?.();
  }
}
