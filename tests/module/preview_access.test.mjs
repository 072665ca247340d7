import assert from 'node:assert/strict';
import { networkInterfaces } from 'node:os';
import { afterEach, beforeEach, describe, test } from 'node:test';
import { PreviewServer } from '../../lib/preview/preview_server.mjs';
import { FakeCapture } from '../support/fake_capture.mjs';
import { connect, enter, request } from '../support/preview_client.mjs';
import { until } from '../support/until.mjs';

let server;
let capture;
beforeEach(async () => {
  capture = new FakeCapture();
  server = await PreviewServer.listen();
  server.show(capture);
});
afterEach(async () => {
  capture.end();
  await server.close({ reason: 'stop', error: null, detail: null });
});

describe('the address', () => {
  test('lets the first in, with a cookie that scripts cannot read', async () => {
    const { status, setCookie, cookie, page } = await enter(server.address);
    assert.equal(status, 200);
    assert.match(setCookie,
      /^\w+=[\w-]{32}; Path=\/[\w-]{16}\/; HttpOnly; SameSite=Strict$/);
    const { status: shown, body } =
      await request(page, { headers: { Cookie: cookie } });
    assert.equal(shown, 200);
    assert.match(body, /<main>/);
  });

  test('is used up by that, and the next is told so', async () => {
    await enter(server.address);
    const { status, headers, body } = await request(server.address);
    assert.equal(status, 403);
    assert.equal(headers['set-cookie'], undefined);
    assert.match(body, /not open to you/);
    assert.match(body, /that has happened/);
  });

  test('leads on by a script that only its own browser can make use of',
    async () => {
      const { page } = await enter(server.address);
      const { body } = await request(server.address);
      const [, script] = /<script type="module" src="([^"]+)">/.exec(body);
      const { origin, pathname } = new URL(page);
      const { status, headers, body: code } = await request(origin + script);
      assert.equal(status, 200);
      assert.match(headers['content-type'], /^text\/javascript/);
      for (const text of [body, code]) {
        assert.ok(!text.includes(pathname.slice(1, -1)));
      }
    });

  test('is not used up by a look at the headers', async () => {
    const look = await request(server.address, { method: 'HEAD' });
    assert.equal(look.status, 403);
    assert.equal((await enter(server.address)).status, 200);
  });

  test('does not let in with a wrong token, which uses nothing up', async () => {
    const { origin } = new URL(server.address);
    for (const wrong of ['/', '/?token=', '/?token=wrong']) {
      const { status, headers } = await request(origin + wrong);
      assert.equal(status, 403, wrong);
      assert.equal(headers['set-cookie'], undefined);
    }
    assert.equal((await enter(server.address)).status, 200);
  });

  test('is of the loopback interface, and of no other', async () => {
    const { hostname, port } = new URL(server.address);
    assert.equal(hostname, '127.0.0.1');
    const outer = Object.values(networkInterfaces()).flat()
      .filter(({ internal, family }) => !internal && family === 'IPv4');
    for (const { address } of outer) {
      await assert.rejects(request(`http://${address}:${port}/`),
        { code: 'ECONNREFUSED' });
    }
  });
});

describe('the page', () => {
  test('is closed without the cookie', async () => {
    const { page } = await enter(server.address);
    for (const name of ['', 'main.mjs', 'style.css', 'none']) {
      assert.equal((await request(page + name)).status, 403, name);
    }
  });

  test('is closed under another name of the host', async () => {
    const { page, cookie } = await enter(server.address);
    const { port } = new URL(page);
    for (const host of ['localhost', 'evil.example', `evil.example:${port}`]) {
      const { status } =
        await request(page, { headers: { Cookie: cookie, Host: host } });
      assert.equal(status, 403, host);
    }
  });

  test('may load and reach nothing but its own server', async () => {
    const { page, cookie, origin } = await enter(server.address);
    const { headers } = await request(page, { headers: { Cookie: cookie } });
    const policy = headers['content-security-policy'].split('; ');
    for (const rule of ["default-src 'none'", "script-src 'self'",
      `connect-src ${origin.replace('http', 'ws')}`,
      "frame-ancestors 'none'"]) {
      assert.ok(policy.includes(rule), rule);
    }
    assert.doesNotMatch(policy.join(), /unsafe|\*/);
    assert.equal(headers['referrer-policy'], 'no-referrer');
    assert.equal(headers['x-content-type-options'], 'nosniff');
  });

  test('has only the files of its folder', async () => {
    const { page, cookie } = await enter(server.address);
    for (const name of ['../access.mjs', '%2e%2e/access.mjs',
      '..%2faccess.mjs', 'none']) {
      const { status, body } =
        await request(page + name, { headers: { Cookie: cookie } });
      assert.ok([403, 404].includes(status), `${name}: ${status}`);
      assert.doesNotMatch(body, /class Access/);
    }
  });

  test('takes nothing that is sent to it', async () => {
    const { page, cookie } = await enter(server.address);
    const { status } = await request(page,
      { method: 'POST', headers: { Cookie: cookie } });
    assert.equal(status, 405);
  });
});

describe('the feed', () => {
  test('is open to the page', async () => {
    const client = await connect(await enter(server.address));
    await until(() => client.last('hello'), 'the greeting');
    assert.equal(client.last('hello').source, 'Window “A test”');
  });

  for (const [what, headers] of Object.entries({
    'another origin': { Origin: 'http://evil.example' },
    'another port of this host': { Origin: 'http://127.0.0.1:1' },
    'no origin': { Origin: '' },
    'another host name': { Host: 'evil.example' },
    'no cookie': { Cookie: '' },
    'a wrong cookie': { Cookie: 'linux_capture_preview=wrong' },
  })) {
    test(`is closed to ${what}`, async () => {
      const entry = await enter(server.address);
      assert.equal(await connect(entry, headers), null);
      assert.notEqual(await connect(entry), null);
    });
  }

  test('is closed to what is no request of a page', async () => {
    const entry = await enter(server.address);
    for (const text of ['', 'null', '{}', '{"type":"stop"}',
      '{"type":"toString"}', '{"type":"bitrate","bitsPerSecond":"1"}',
      '{"type":"watch","branches":[0.5],"sound":false}']) {
      const client = await connect(entry);
      client.socket.send(text);
      await until(() => client.closed, `the end after ${text}`);
      assert.equal(client.closed.code, 1008, text);
    }
    const client = await connect(entry);
    client.socket.send('x'.repeat(10_000));
    await until(() => client.closed, 'the end after much');
    assert.equal(client.closed.code, 1009);
  });

  test('is open to several pages, but not to any number', async () => {
    const entry = await enter(server.address);
    const clients = [];
    for (let i = 0; i < 8; i += 1) clients.push(await connect(entry));
    for (const client of clients) {
      await until(() => client.last('hello'), 'the greeting');
    }
    const ninth = await connect(entry);
    await until(() => ninth.closed, 'the refusal');
    assert.equal(ninth.closed.code, 1013);
    clients[0].socket.close();
    await until(() => clients[0].closed, 'the end of one');
    const tenth = await connect(entry);
    await until(() => tenth.last('hello'), 'the greeting');
  });
});
