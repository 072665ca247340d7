import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { createSocket } from 'node:dgram';
import { once } from 'node:events';
import { closeSync, constants, openSync } from 'node:fs';
import { connect, createServer } from 'node:net';
import path from 'node:path';
import { after, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { portalRequest } from '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startVideo } from '../support/pipewire_sources.mjs';
import { until } from '../support/until.mjs';
import { startXvfb } from '../support/xvfb.mjs';

const size = { width: 160, height: 90 };
let screen;
const session = usePipeWire({
  prepare: async (started) => {
    screen = await startVideo(started, size);
    return [screen];
  },
});
const closers = [];
after(async () => {
  for (const close of closers) await close();
});

const inSession = (name) => path.join(session.root, name);
const fdOf = (handle) => handle._handle.fd;

function open(file, flags = 'r') {
  const fd = openSync(file, flags);
  closers.push(() => closeSync(fd));
  return fd;
}

async function listen(address) {
  const server = createServer((socket) => socket.pause());
  server.listen(address);
  await once(server, 'listening');
  closers.push(() => server.close());
  return server;
}

async function connectTo(address) {
  const socket = connect(address);
  socket.pause();
  socket.on('error', () => {});
  await once(socket, 'connect');
  closers.push(() => socket.destroy());
  return socket;
}

/** What a host may hand over by mistake, and what is said about it. */
const mistakes = [
  ['a number that is not open', 'it is not open', () => 1_000],
  ['a file', 'it is not a socket', () => open('/etc/passwd')],
  ['a folder', 'it is not a socket', () => open('/tmp')],
  ['/dev/null', 'it is not a socket', () => open('/dev/null', 'r+')],
  ['a FIFO', 'it is not a socket', () => {
    execFileSync('mkfifo', [inSession('fifo')]);
    return open(inSession('fifo'), constants.O_RDWR);
  }],
  ['a datagram socket', 'it is not a local stream socket', async () => {
    const socket = createSocket('udp4');
    socket.bind(0, '127.0.0.1');
    await once(socket, 'listening');
    closers.push(() => socket.close());
    return socket[Object.getOwnPropertySymbols(socket)
      .find(({ description }) => description === 'state symbol')].handle.fd;
  }],
  ['a network connection', 'it is not a local stream socket', async () => {
    const server = await listen({ port: 0, host: '127.0.0.1' });
    return fdOf(await connectTo(server.address()));
  }],
  ['a listening socket', 'it is a listening socket', async () =>
    fdOf(await listen(inSession('listening')))],
  ['a connection whose other end has gone', 'its other end has closed it',
    async () => {
      const server = await listen(inSession('closing'));
      server.on('connection', (socket) => socket.destroy());
      const socket = connect({ path: inSession('closing'),
        allowHalfOpen: true });
      socket.pause();
      closers.push(() => socket.destroy());
      const [ended] = await once(server, 'connection');
      await once(ended, 'close');
      return fdOf(socket);
    }],
  ['a server that says nothing', 'its other end does not answer', async () => {
    await listen(inSession('silent'));
    return fdOf(await connectTo(inSession('silent')));
  }],
  ['an X server', 'its other end does not answer', async () => {
    const xvfb = await startXvfb();
    closers.push(() => xvfb.stop());
    return fdOf(await connectTo(xvfb.socket));
  }],
];

function refusalOf(fd) {
  const begin = performance.now();
  try {
    addon.captureSetup(portalRequest({ fd, node: screen.node, ...size }));
  } catch ({ name, message, code }) {
    return { name, message, code, tookMs: performance.now() - begin };
  }
  return undefined;
}

for (const [what, reason, make] of mistakes) {
  test(`${what} in place of the connection is refused by name`, async () => {
    const fd = await make();
    const { tookMs, ...refusal } = refusalOf(fd);
    assert.deepEqual(refusal, {
      name: 'Error',
      message: `portal.pipeWireFd ${fd} is not a usable connection to ` +
        `PipeWire: ${reason}`,
      code: 'connection-invalid',
    });
    assert.ok(tookMs < 5_000, `it took ${tookMs} ms`);
    assert.equal(addon.isCapturing(), false);
  });
}

test('a silent connection without an address is given up', async () => {
  const other = spawn('sleep', ['1000'],
    { stdio: ['pipe', 'ignore', 'ignore'] });
  closers.push(() => other.kill());
  const { tookMs, ...refusal } = refusalOf(fdOf(other.stdin));
  assert.deepEqual(refusal, {
    name: 'Error',
    message: 'video pipeline did not start in time',
    code: 'source-stalled',
  });
  assert.ok(tookMs < 12_000, `it took ${tookMs} ms`);
  assert.equal(addon.isCapturing(), false);
});

test('after all of them a real connection is captured', async () => {
  const holder = await startHolder(session);
  closers.push(() => holder.stop());
  const { packets } = collect();
  addon.captureSetup(portalRequest({
    fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
    node: screen.node,
    ...size,
  }));
  await until(() => packets.length > 10, 'pictures');
  addon.stopCapture();
});
