import assert from 'node:assert/strict';
import dgram from 'node:dgram';
import { once } from 'node:events';
import { createServer } from 'node:http';
import { readdirSync } from 'node:fs';
import { test } from 'node:test';
import connections from '../../lib/publish/connection.js';
import { openMediaPeer } from '../support/media_peer.mjs';
import { until } from '../support/until.mjs';
import { openWhipDoor } from '../support/whip_door.mjs';

const { Connection } = connections;
const plan = {
  branchCount: 1, hasAudio: false, layers: 1, bitsPerSecond: 1_000_000,
  nowUs: () => Math.round(performance.now() * 1000),
  requestKeyframe: () => {},
};

const connect = (url) =>
  new Connection({ url: new URL(url), token: null }, plan);

/** What a process must not gather: descriptors and what may keep it. */
const held = () => ({
  descriptors: readdirSync('/proc/self/fd').length,
  resources: process.getActiveResourcesInfo()
    .filter((name) => /Process|Pipe|Socket|Wrap/.test(name)).length,
});

/** A server of HTTP that does with requests what `handle` says. */
async function openServer(handle) {
  const server = createServer(handle);
  server.listen(0, '127.0.0.1');
  await once(server, 'listening');
  return {
    url: `http://127.0.0.1:${server.address().port}/whip`,
    async close() {
      server.closeAllConnections();
      server.close();
      await once(server, 'close');
    },
  };
}

const silent = {
  'no answer to the offer': () => openServer(() => {}),
  'an answer that comes byte by byte': () =>
    openServer((request, response) => {
      if (request.method !== 'POST') {
        response.writeHead(204).end();
        return;
      }
      response.writeHead(201, { location: '/session/1' });
      const drip = setInterval(() => response.write('v'), 100);
      response.once('close', () => clearInterval(drip));
    }),
  'no answer at the address for media': async () => {
    const socket = dgram.createSocket('udp4');
    socket.bind(0, '127.0.0.1');
    await once(socket, 'listening');
    const peer = await openMediaPeer({ isIdle: true });
    const door = await openWhipDoor((offer) => peer.answer(offer).replace(
      /^(a=candidate:\S+ 1 udp \d+) \S+ \d+ (.*)$/gim,
      `$1 127.0.0.1 ${socket.address().port} $2`));
    return { url: door.url,
      close: () => Promise.all([door.close(), peer.close(), socket.close()]) };
  },
  'no handshake': async () => {
    const peer = await openMediaPeer({ isWaiting: true });
    const door = await openWhipDoor(peer.answer);
    return { url: door.url,
      close: () => Promise.all([door.close(), peer.close()]) };
  },
};

/** A connection that succeeds, and one that is ended at some moment of it. */
async function connectAndLeave(afterMs) {
  const peer = await openMediaPeer();
  const door = await openWhipDoor(peer.answer);
  const connection = connect(door.url);
  const ending = new AbortController();
  if (afterMs !== null) setTimeout(() => ending.abort(), afterMs);
  const error = await connection.open(ending.signal).then(() => null,
    (reason) => reason);
  if (afterMs === null) assert.equal(error, null);
  else assert.equal(error?.code ?? 'ABORT_ERR', 'ABORT_ERR');
  await connection.close();
  await door.close();
  await peer.close();
}

// At once, since each takes as long as is waited for.
test('servers that never answer are told, and leave nothing behind',
  async (context) => {
    // The first request of a process opens what stays.
    const first = connect('http://127.0.0.1:1/');
    await assert.rejects(first.open());
    await first.close();
    const before = held();
    const others = (async () => {
      for (const afterMs of [null, 0, 30, 80, 150, 250, 400, null]) {
        await connectAndLeave(afterMs);
      }
    })();
    await Promise.all([others, ...Object.entries(silent).map(async ([what, open]) => {
      const server = await open();
      const connection = connect(server.url);
      const startedMs = performance.now();
      await assert.rejects(connection.open(),
        { code: 'ERR_PUBLISH_UNREACHABLE', mayPass: true }, what);
      context.diagnostic(`${what}: told after ${
        Math.round(performance.now() - startedMs)} ms`);
      await connection.close();
      await server.close();
    })]);
    await until(() => held().resources <= before.resources &&
      held().descriptors <= before.descriptors,
    `no more than ${JSON.stringify(before)}`);
  });
