import { once } from 'node:events';
import { createServer } from 'node:http';

const loopback = '127.0.0.1';

// Every local user and every page of the web can open connections. They wait
// for each other, and not for long, before the process runs out of them.
const limits = {
  connectionsCheckingInterval: 1000,
  headersTimeout: 5000,
  requestTimeout: 10_000,
};
const mostConnections = 64;

/** The beginning of a request's target: its path, and what it asks with. */
export function splitTarget(target) {
  const at = target.indexOf('?');
  return {
    path: at === -1 ? target : target.slice(0, at),
    query: new URLSearchParams(at === -1 ? '' : target.slice(at)),
  };
}

/**
 * A web server on the loopback interface that nothing ends which comes in from
 * outside: whatever `answer` and `upgrade` meet ends one connection.
 */
export class GuardedServer {
  #http;
  #connections = new Set();
  #report;
  #reported = new Set();

  constructor({ answer, upgrade, report }) {
    this.#report = report;
    this.#http = createServer(limits, (request, response) => {
      response.on('error', () => {});
      this.guard(() => answer(request, response), () => {
        if (response.headersSent) response.destroy();
        else response.writeHead(500).end();
      });
    });
    this.#http.maxConnections = mostConnections;
    this.#http.on('upgrade', (request, socket, head) => {
      socket.on('error', () => {});
      this.guard(() => upgrade(request, socket, head), () => socket.destroy());
    });
    this.#http.on('connection', (socket) => {
      this.#connections.add(socket);
      socket.once('close', () => this.#connections.delete(socket));
    });
  }

  /** Listens on a port, 0 for any that is free; gives the port. */
  async listen(port) {
    this.#http.listen(port, loopback);
    await once(this.#http, 'listening');
    this.#http.on('error', (error) => this.#tell(error));
    return this.#http.address().port;
  }

  /** Runs `work`; if it fails, that is reported and `giveUp` is called. */
  guard(work, giveUp) {
    try {
      work();
    } catch (error) {
      this.#tell(error);
      giveUp();
    }
  }

  /** What keeps on failing is told once. */
  #tell(error) {
    if (this.#reported.has(error.message)) return;
    this.#reported.add(error.message);
    this.#report(error);
  }

  /** Takes no more connections, and ends the present ones after a while. */
  async close(graceMs) {
    const closed = once(this.#http, 'close');
    this.#http.close();
    this.#http.closeIdleConnections();
    // Node.js itself forgets those that were upgraded.
    const timer = setTimeout(() => {
      for (const socket of this.#connections) socket.destroy();
    }, graceMs);
    await closed;
    clearTimeout(timer);
  }
}

/** Answers an upgrade with a refusal; the other side need not agree. */
export function refuseUpgrade(socket) {
  socket.once('finish', () => socket.destroy());
  socket.end('HTTP/1.1 403 Forbidden\r\nConnection: close\r\n' +
    'Content-Length: 0\r\n\r\n');
}
