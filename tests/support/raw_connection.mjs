import { once } from 'node:events';
import net from 'node:net';

/**
 * A bare connection, for what no client library would send. It never closes
 * its own side by itself; what comes is in `text`.
 */
export async function connectRaw(address) {
  const { hostname, port } = new URL(address);
  const socket =
    net.connect({ host: hostname, port: Number(port), allowHalfOpen: true });
  const connection = { socket, text: '', hasEnd: false };
  socket.on('error', () => {});
  socket.on('data', (data) => {
    connection.text += data.toString('latin1');
  });
  socket.on('end', () => {
    connection.hasEnd = true;
  });
  socket.on('close', () => {
    connection.hasEnd = true;
  });
  await once(socket, 'connect');
  return connection;
}

/** A request as text; `target` and the values go out as they are. */
export function rawRequest(address, target, { method = 'GET', headers = {} } =
{}) {
  const lines = Object.entries({ Host: new URL(address).host, ...headers })
    .map(([name, value]) => `${name}: ${value}\r\n`);
  return `${method} ${target} HTTP/1.1\r\n${lines.join('')}\r\n`;
}

export const upgradeHeaders = {
  Connection: 'Upgrade',
  Upgrade: 'websocket',
  'Sec-WebSocket-Version': '13',
  'Sec-WebSocket-Key': 'AAAAAAAAAAAAAAAAAAAAAA==',
};
