import { once } from 'node:events';
import { createServer } from 'node:http';

/**
 * The door of a server, without the server: offers that are posted to /whip go
 * to `answer(offer)`, which gives the answer's text. What was asked is kept in
 * `requests`; `token`, if there is one, must come with each. `links` are the
 * headers of that name, by the method that they answer.
 */
export async function openWhipDoor(answer, { token = null, links = {} } = {}) {
  const requests = [];
  const server = createServer(async (request, response) => {
    const body = Buffer.concat(await request.toArray()).toString();
    const { method, url, headers } = request;
    requests.push({ method, url, headers, body });
    if (links[method] !== undefined) response.setHeader('link', links[method]);
    if (token !== null && headers.authorization !== `Bearer ${token}`) {
      response.writeHead(401).end();
    } else if (method === 'POST' && url === '/whip') {
      try {
        const text = await answer(body);
        response.writeHead(201, {
          'content-type': 'application/sdp',
          location: `/session/${requests.length}`,
        }).end(text);
      } catch (error) {
        response.writeHead(500).end(String(error));
      }
    } else if (method === 'DELETE' && url.startsWith('/session/')) {
      response.writeHead(200).end();
    } else {
      response.writeHead(method === 'OPTIONS' ? 204 : 404).end();
    }
  });
  server.listen(0, '127.0.0.1');
  await once(server, 'listening');
  return {
    url: `http://127.0.0.1:${server.address().port}/whip`,
    requests,
    async close() {
      server.closeAllConnections();
      server.close();
      await once(server, 'close');
    },
  };
}
