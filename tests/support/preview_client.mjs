import { once } from 'node:events';
import http from 'node:http';
import { WebSocket } from 'ws';
import { decodeMessage } from '../../lib/preview/page/wire.mjs';

/** One request without a browser; resolves with status, headers and body. */
export async function request(address, { method = 'GET', headers = {} } = {}) {
  const sent = http.request(address, { method, headers }).end();
  const [response] = await once(sent, 'response');
  let body = '';
  for await (const chunk of response.setEncoding('utf8')) body += chunk;
  return { status: response.statusCode, headers: response.headers, body };
}

/** Uses the address up, as the browser of the user would. */
export async function enter(address) {
  const { status, headers, body } = await request(address);
  const [, base] = /url=([^"]+)"/.exec(body) ?? [];
  const { origin } = new URL(address);
  return {
    status,
    setCookie: headers['set-cookie']?.[0],
    cookie: headers['set-cookie']?.[0].split(';')[0],
    origin,
    page: `${origin}${base}`,
    feed: `${origin.replace('http', 'ws')}${base}feed`,
  };
}

/** A WebSocket that keeps what comes; null when the server refuses it. */
export async function connect({ feed, cookie, origin }, headers = {}) {
  const socket = new WebSocket(feed, {
    perMessageDeflate: false,
    headers: { Cookie: cookie, Origin: origin, ...headers },
  });
  const client = { socket, messages: [], pictures: [], closed: null };
  client.send = (object) => socket.send(JSON.stringify(object));
  client.last = (type) =>
    client.messages.findLast((message) => message.type === type);
  socket.on('message', (data, isBinary) => {
    if (isBinary) {
      const { buffer, byteOffset, length } = data;
      client.pictures.push(
        decodeMessage(buffer.slice(byteOffset, byteOffset + length)));
    } else {
      client.messages.push(JSON.parse(data.toString()));
    }
  });
  socket.on('close', (code, reason) => {
    client.closed = { code, reason: reason.toString() };
  });
  return new Promise((resolve) => {
    socket.once('open', () => resolve(client));
    socket.once('error', () => resolve(null));
  });
}
