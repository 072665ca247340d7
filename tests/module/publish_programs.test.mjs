import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import path from 'node:path';
import { describe, test } from 'node:test';
import frames from '../../lib/publish/frames.js';
import nativeFiles from '../../lib/native_files.js';
import { collectText } from '../support/processes.mjs';

const { FrameReader, makeFrame } = frames;

/** Runs a program with these bytes as its whole input. */
async function runWith(name, input, { isRead = true } = {}) {
  const child = spawn(path.join(nativeFiles.nativeFolder(name), name), [],
    { stdio: ['pipe', 'pipe', 'pipe'] });
  const errors = collectText(child.stderr);
  const got = [];
  const reader = new FrameReader((kind, payload) =>
    got.push({ kind, payload: Buffer.from(payload) }));
  if (isRead) child.stdout.on('data', (bytes) => reader.add(bytes));
  child.stdin.on('error', () => {
    // It may refuse the input before it has read all of it.
  });
  child.stdin.end(input);
  const [status, signal] = await once(child, isRead ? 'close' : 'exit');
  return { status, signal, stderr: errors.text, got };
}

const text = (kind, words) => makeFrame(kind, Buffer.from(words));

const samples = (timestampUs, count) => {
  const payload = Buffer.alloc(8 + count * 4);
  payload.writeBigInt64BE(BigInt(timestampUs));
  for (let at = 8; at < payload.length; at += 4) {
    const value = Math.round(9_000 * Math.sin(at / 20));
    payload.writeInt16LE(value, at);
    payload.writeInt16LE(value, at + 2);
  }
  return makeFrame('a', payload);
};

for (const name of ['linux-capture-transport', 'linux-capture-opus']) {
  describe(name, () => {
    test('ends with its input', async () => {
      const { status, stderr } = await runWith(name, Buffer.alloc(0));
      assert.deepEqual([status, stderr], [0, '']);
    });

    for (const [what, input] of [
      ['nothing but zeros', Buffer.alloc(4_096)],
      ['a length that no frame has', Buffer.from('ffffffff00', 'hex')],
      ['a frame of an unknown kind', text('?', 'what')],
      ['words', Buffer.from('GET / HTTP/1.1\r\n\r\n')],
    ]) {
      test(`refuses ${what} in one line`, async () => {
        const { status, signal, stderr } = await runWith(name, input);
        assert.deepEqual([status, signal], [2, null]);
        assert.match(stderr, new RegExp(`^${name}: [^\n]+\n$`));
      });
    }

    test('takes any bytes without a crash', async () => {
      let seed = 7;
      for (let round = 0; round < 25; round += 1) {
        const bytes = Buffer.from(Array.from({ length: 300 }, () => {
          seed = (seed * 48_271) % 2_147_483_647;
          return seed & 255;
        }));
        const kinds = name.endsWith('opus') ? 'a' : 'orp';
        const { signal } = await runWith(name,
          makeFrame(kinds[round % kinds.length], bytes));
        assert.equal(signal, null);
      }
    });
  });
}

describe('the encoder of sound', () => {
  test('makes packets of 20 ms with the times of their samples', async () => {
    const { status, got } = await runWith('linux-capture-opus', Buffer.concat(
      [0, 1, 2, 3, 4, 5].map((step) => samples(step * 10_000, 480))));
    assert.equal(status, 0);
    assert.deepEqual(got.map(({ payload }) =>
      Number(payload.readBigInt64BE())), [0, 20_000, 40_000]);
    assert.ok(got.every(({ payload }) => payload.length > 20));
  });

  test('begins anew behind a gap, and behind a step back', async () => {
    const { got } = await runWith('linux-capture-opus', Buffer.concat(
      [samples(0, 480), samples(1_000_000, 960), samples(500_000, 960)]));
    assert.deepEqual(got.map(({ payload }) =>
      Number(payload.readBigInt64BE())), [0, 1_000_000, 500_000]);
  });

  test('refuses half of a sample', async () => {
    const { status } = await runWith('linux-capture-opus',
      makeFrame('a', Buffer.alloc(8 + 3)));
    assert.equal(status, 2);
  });
});

describe('the transport', () => {
  test('tells what to offer', async () => {
    const child = spawn(path.join(
      nativeFiles.nativeFolder('linux-capture-transport'),
      'linux-capture-transport'), [], { stdio: ['pipe', 'pipe', 'inherit'] });
    const local = await new Promise((resolve) => {
      const reader = new FrameReader((kind, payload) =>
        resolve({ kind, lines: payload.toString().split('\n') }));
      child.stdout.on('data', (bytes) => reader.add(bytes));
      child.stdin.write(text('o', 'loopback'));
    });
    child.stdin.end();
    assert.deepEqual(await once(child, 'close'), [0, null]);
    assert.equal(local.kind, 'l');
    const find = (pattern) => local.lines.filter((line) => pattern.test(line));
    assert.equal(find(/^user \S{4,}$/).length, 1);
    assert.equal(find(/^password \S{22,}$/).length, 1);
    assert.equal(find(/^fingerprint sha-256 ([0-9A-F]{2}:){31}[0-9A-F]{2}$/)
      .length, 1);
    assert.ok(find(/^candidate:.* 127\.0\.0\.1 \d+ typ host/).length >= 1);
    assert.deepEqual(find(/ tcp | fe80:| 169\.254\./i), []);
  });

  for (const [what, input] of [
    ['an answer before it was opened', text('r',
      'user a\npassword b\nfingerprint sha-256 AB')],
    ['an answer without a fingerprint', Buffer.concat(
      [text('o', ''), text('r', 'user a\npassword b')])],
    ['a server without a port', text('o', 'stun 127.0.0.1 none')],
    ['a server that is a name with a line end', text('o', 'stun a\nb 3478')],
  ]) {
    test(`refuses ${what}, without its values`, async () => {
      const { status, stderr } =
        await runWith('linux-capture-transport', input);
      assert.equal(status, 2);
      assert.doesNotMatch(stderr, /127\.0\.0\.1|password b/);
    });
  }
});

