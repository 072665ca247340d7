import { once } from 'node:events';
import { connect } from 'node:net';

const hello = [0x6c, 0, 11, 0, 0, 0, 0, 0, 0, 0, 0, 0];
const grabServer = [36, 0, 1, 0];
const getInputFocus = [43, 0, 1, 0];

/**
 * Keeps an X server for itself, as a program does that asks the user for a
 * password: nobody else is answered until `release`.
 */
export async function grabServerOf({ socket }) {
  const client = connect(socket);
  await once(client, 'connect');
  client.write(Buffer.from(hello));
  await once(client, 'data');
  client.write(Buffer.from([...grabServer, ...getInputFocus]));
  await once(client, 'data');
  client.on('error', () => {});
  return { release: () => client.destroy() };
}
