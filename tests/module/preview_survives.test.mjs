import assert from 'node:assert/strict';
import { afterEach, beforeEach, describe, test } from 'node:test';
import fc from 'fast-check';
import { PreviewServer } from '../../lib/preview/preview_server.mjs';
import { FakeCapture } from '../support/fake_capture.mjs';
import { connect, enter, request } from '../support/preview_client.mjs';
import { connectRaw, rawRequest, upgradeHeaders } from
  '../support/raw_connection.mjs';
import { until } from '../support/until.mjs';

let server;
let capture;
let reported;
let connections;
beforeEach(async () => {
  capture = new FakeCapture({ branchCount: 2 });
  reported = [];
  connections = [];
  server = await PreviewServer.listen(0,
    { report: (error) => reported.push(error.message) });
  server.show(capture);
});
afterEach(async () => {
  for (const { socket } of connections) socket.destroy();
  capture.end();
  await server?.close({ reason: 'stop', error: null, detail: null });
});

async function open() {
  const connection = await connectRaw(server.address);
  connections.push(connection);
  return connection;
}

/** The status that a request as text is answered with. */
async function statusOf(text) {
  const connection = await open();
  connection.socket.write(text, 'latin1');
  const [, status] = await until(
    () => /^HTTP\/1\.1 (\d+) /.exec(connection.text), `an answer to ${text}`);
  connection.socket.destroy();
  return Number(status);
}

/** That the server still lets its user in, and shows pictures. */
async function assertAlive() {
  const entry = await enter(server.address);
  assert.equal(entry.status, 200);
  const client = await connect(entry);
  client.send({ type: 'watch', branches: [0], sound: false });
  await until(() => capture.keyframesAsked > 0, 'the wish for a keyframe');
  capture.send({ isKeyframe: true });
  await until(() => client.pictures.length > 0, 'a picture');
  client.socket.terminate();
}

// What an address is not, or is for others only.
const strangeTargets = ['//', '///', '/\\', '/\\\\', '//[', '//[::1', '//:0',
  '//user@:99999/', '/%', '/%zz', '/?token=%', '/?token=%E0%A4%A', '/?%=%&=',
  'http://', 'http://[', 'http://127.0.0.1:99999999/', 'http:', 'x:y', '*',
  '/?token=' + 'x'.repeat(5000), '/' + '../'.repeat(500), '/\xff\xfe'];

describe('the server lives through', () => {
  for (const method of ['GET', 'HEAD', 'POST', 'OPTIONS']) {
    test(`${method} of every strange target`, async () => {
      for (const target of strangeTargets) {
        const status =
          await statusOf(rawRequest(server.address, target, { method }));
        assert.ok(status >= 400 && status < 500, `${target}: ${status}`);
      }
      await assertAlive();
      assert.deepEqual(reported, []);
    });
  }

  test('strange targets from who has the cookie', async () => {
    const { cookie, page } = await enter(server.address);
    const { pathname } = new URL(page);
    for (const target of [...strangeTargets, `/${pathname}`, `${pathname}//`,
      `${pathname}%`, `${pathname}__proto__`, `${pathname}?%`]) {
      await statusOf(rawRequest(server.address, target,
        { headers: { Cookie: cookie } }));
    }
    const { status } = await request(page, { headers: { Cookie: cookie } });
    assert.equal(status, 200);
  });

  test('upgrades to strange targets', async () => {
    for (const target of strangeTargets) {
      const status = await statusOf(rawRequest(server.address, target,
        { headers: upgradeHeaders }));
      assert.ok(status >= 400 && status < 500, `${target}: ${status}`);
    }
    await assertAlive();
  });

  test('upgrades of the page that are no WebSocket', async () => {
    const { feed, cookie, origin } = await enter(server.address);
    const right = { ...upgradeHeaders, Cookie: cookie, Origin: origin };
    const { pathname } = new URL(feed);
    for (const wrong of [{ Upgrade: 'h2c' }, { Upgrade: '' },
      { 'Sec-WebSocket-Key': 'short' }, { 'Sec-WebSocket-Version': '99' },
      { 'Sec-WebSocket-Protocol': ',,' }, { 'Sec-WebSocket-Key': '' }]) {
      const status = await statusOf(rawRequest(server.address, pathname,
        { headers: { ...right, ...wrong } }));
      assert.ok(status >= 400 && status < 500,
        `${JSON.stringify(wrong)}: ${status}`);
    }
    const method = 'POST';
    assert.equal(await statusOf(rawRequest(server.address, pathname,
      { method, headers: right })), 405);
    assert.equal(await statusOf(rawRequest(server.address, pathname,
      { headers: right })), 101);
  });

  test('any bytes, before, in and instead of a request', async () => {
    const bytes = fc.uint8Array({ maxLength: 200 })
      .map((array) => Buffer.from(array).toString('latin1'));
    const word = fc.constantFrom('GET', 'HEAD', 'PRI', 'CONNECT', ' ', '/',
      '//', '\\', '[', '?token=', '%', '\r\n', '\n', '\0', 'HTTP/1.1',
      'HTTP/1.0', 'HTTP/9.9', 'Host:', 'Cookie:', 'linux_capture_preview=',
      'Connection: Upgrade\r\n', 'Upgrade: websocket\r\n',
      'Content-Length: 99999999999999999999\r\n', 'Expect: 100-continue\r\n',
      'Transfer-Encoding: chunked\r\n', 'fffffffffffff\r\n');
    const junk = fc.array(fc.oneof(word, bytes), { maxLength: 20 })
      .map((parts) => parts.join(''));
    const target = fc.oneof(fc.constantFrom(...strangeTargets),
      fc.webUrl({ withQueryParameters: true }), fc.webPath(),
      junk.map((text) => text.replaceAll(/[\r\n ]/g, '/')));
    const method = fc.constantFrom('GET', 'HEAD', 'POST', 'PUT', 'TRACE');
    const sent = fc.oneof(junk, fc.tuple(method, target, fc.boolean()).map(
      ([name, to, isUpgrade]) => rawRequest(server.address, to, {
        method: name, headers: isUpgrade ? upgradeHeaders : {},
      })));
    await fc.assert(fc.asyncProperty(sent, fc.boolean(),
      async (text, isAbrupt) => {
        const { socket } = await open();
        socket.write(text, 'latin1');
        if (isAbrupt) socket.resetAndDestroy();
        else socket.end();
        // In order behind it, on a connection of its own.
        assert.equal(await statusOf(rawRequest(server.address, '/')), 403);
      }), { numRuns: 200, seed: 7 });
    await assertAlive();
    assert.deepEqual(reported, []);
  });

  test('any message of the page', async () => {
    const entry = await enter(server.address);
    const known = fc.record({
      type: fc.oneof(fc.constantFrom('watch', 'keyframe', 'bitrate',
        'constructor', '__proto__'), fc.anything()),
      branches: fc.oneof(fc.array(fc.oneof(fc.integer(), fc.anything())),
        fc.anything()),
      sound: fc.oneof(fc.boolean(), fc.anything()),
      bitsPerSecond: fc.oneof(fc.integer(), fc.double(), fc.anything()),
    }, { requiredKeys: [] });
    const text = fc.oneof(known, fc.anything()).map((value) => {
      try {
        return JSON.stringify(value) ?? 'undefined';
      } catch {
        return String(typeof value);
      }
    });
    const message = fc.oneof(text, fc.json(), fc.string(),
      fc.uint8Array({ maxLength: 5000 }));
    await fc.assert(fc.asyncProperty(fc.array(message, { maxLength: 5 }),
      async (messages) => {
        const client = await connect(entry);
        assert.notEqual(client, null);
        for (const data of messages) client.socket.send(data);
        client.socket.terminate();
      }), { numRuns: 200, seed: 7 });
    // The places of the pages above become free when the server sees it.
    await until(async () => {
      const client = await connect(entry);
      await until(() => client.last('hello') || client.closed, 'an answer');
      client.socket.terminate();
      return client.last('hello');
    }, 'the greeting');
    assert.deepEqual(reported, []);
  });

  test('frames that are none of the protocol', async () => {
    const { feed, cookie, origin } = await enter(server.address);
    const upgrade = rawRequest(server.address, new URL(feed).pathname,
      { headers: { ...upgradeHeaders, Cookie: cookie, Origin: origin } });
    await fc.assert(fc.asyncProperty(fc.uint8Array({ maxLength: 100 }),
      async (bytes) => {
        const { socket } = await open();
        socket.write(upgrade);
        socket.end(bytes);
        assert.equal(await statusOf(rawRequest(server.address, '/')), 403);
      }), { numRuns: 200, seed: 7 });
    assert.deepEqual(reported, []);
  });

  test('a failure of its own, which it reports, once', async () => {
    const entry = await enter(server.address);
    capture.stats = () => {
      throw new Error('no statistics');
    };
    for (let i = 0; i < 3; i += 1) {
      const client = await connect(entry);
      await until(() => client.closed, 'the end of the page');
      assert.equal(client.closed.code, 1011);
    }
    assert.deepEqual(reported, ['no statistics']);
    delete capture.stats;
    const client = await connect(entry);
    await until(() => client.last('hello'), 'the greeting');
    capture.setBitrate = () => {
      throw new Error('no bitrate');
    };
    client.send({ type: 'bitrate', bitsPerSecond: 1_000_000 });
    await until(() => client.closed, 'the end of the page');
    assert.equal(client.closed.code, 1011);
    assert.deepEqual(reported, ['no statistics', 'no bitrate']);
  });
});

describe('the end comes although', () => {
  async function close() {
    capture.end();
    const closing = server.close({ reason: 'stop', error: null, detail: null });
    server = null;
    let isClosed = false;
    closing.then(() => {
      isClosed = true;
    });
    await until(() => isClosed, 'the end of the server', 20_000);
  }

  test('a refused upgrade keeps its side open', async () => {
    const refused = await open();
    refused.socket.write(rawRequest(server.address, '/feed',
      { headers: upgradeHeaders }));
    await until(() => refused.hasEnd, 'the end of the refused connection');
    assert.match(refused.text, /^HTTP\/1\.1 403 /);
    // Who writes to a connection that is wholly gone finds that out.
    await until(() => {
      refused.socket.write('x');
      return refused.socket.destroyed;
    }, 'the release of the connection');
    await close();
  });

  test('a connection never asks for anything', async () => {
    await open();
    await close();
  });

  test('a request stays unfinished', async () => {
    const { socket } = await open();
    socket.write('GET / HTTP/1.1\r\nHost:');
    await close();
  });

  test('a body never comes', async () => {
    const { socket } = await open();
    socket.write(rawRequest(server.address, '/',
      { method: 'POST', headers: { 'Content-Length': '1000' } }));
    await close();
  });

  test('a page neither reads nor answers', async () => {
    const entry = await enter(server.address);
    const client = await connect(entry);
    client.send({ type: 'watch', branches: [0], sound: false });
    await until(() => capture.keyframesAsked > 0, 'the wish for a keyframe');
    client.socket.pause();
    for (let i = 0; i < 100; i += 1) {
      capture.send({ isKeyframe: true, size: 200_000 });
    }
    await close();
    client.socket.terminate();
  });
});
