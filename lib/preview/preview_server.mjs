import { WebSocketServer } from 'ws';

import { Access } from './access.mjs';
import { Feed } from './feed.mjs';
import { GuardedServer, refuseUpgrade, splitTarget } from
  './guarded_server.mjs';
import { PageClient } from './page_client.mjs';
import {
  againPath, entrancePage, missingPage, readPageFiles, refusalPage, securityHeaders,
} from './page_files.mjs';
import { parseRequest } from './page_requests.mjs';

const mostPages = 8;

// Requests of a page are a few words.
const longestRequest = 4096;

// How long a page may take to read the last message before it is cut off.
const goodbyeMs = 1000;

// Close codes of the WebSocket protocol.
const codes = {
  normal: 1000, policy: 1008, internalError: 1011, tryLater: 1013,
};

const htmlType = 'text/html; charset=utf-8';

/** A web server on the loopback interface that shows one capture. */
export class PreviewServer {
  #http;
  #sockets = new WebSocketServer({
    noServer: true, maxPayload: longestRequest, perMessageDeflate: false,
  });
  #files = readPageFiles();
  #access;
  #feed = null;
  #branchCount = 0;

  /** `report` is told what goes wrong here; the server goes on. */
  constructor({ report = () => {} } = {}) {
    this.#http = new GuardedServer({
      answer: (request, response) => this.#answer(request, response),
      upgrade: (...args) => this.#upgrade(...args),
      report,
    });
  }

  /** Listens on a port, 0 for any that is free; shows nothing yet. */
  static async listen(port = 0, options = {}) {
    const server = new PreviewServer(options);
    server.#access = new Access(await server.#http.listen(port));
    return server;
  }

  /** Where a browser gets in, once. */
  get address() {
    return this.#access.address;
  }

  /** Shows a capture that runs. */
  show(capture) {
    this.#branchCount = capture.branches.length;
    this.#feed = new Feed(capture);
  }

  /** Tells all pages how the capture ended, if it did, and stops. */
  async close(end = null) {
    this.#feed?.stop(end);
    for (const socket of this.#sockets.clients) {
      socket.close(codes.normal, 'the preview has ended');
    }
    await this.#http.close(goodbyeMs);
  }

  #answer(request, response) {
    const send = (status, type, body, headers = {}) => {
      response.writeHead(status, {
        ...securityHeaders(this.#access.host),
        'Content-Type': type,
        ...headers,
      });
      response.end(request.method === 'HEAD' ? undefined : body);
    };
    const refuse = () => send(403, htmlType, refusalPage);
    if (!['GET', 'HEAD'].includes(request.method)) {
      send(405, htmlType, missingPage, { Allow: 'GET, HEAD' });
      return;
    }
    if (!this.#access.isForHere(request)) {
      refuse();
      return;
    }
    const { path, query } = splitTarget(request.url);
    const { base } = this.#access;
    if (path === '/') {
      // A look at the headers alone uses nothing up.
      if (request.method === 'GET' &&
          this.#access.useToken(query.get('token') ?? '')) {
        send(200, htmlType, entrancePage(base),
          { 'Set-Cookie': this.#access.cookie });
      } else {
        refuse();
      }
      return;
    }
    if (path === '/favicon.ico') {
      // Browsers ask for it on behalf of the pages that are no part of the
      // preview proper.
      send(204, htmlType);
      return;
    }
    if (path === againPath) {
      const { type, body } = this.#files.get(againPath.slice(1));
      send(200, type, body);
      return;
    }
    if (!this.#access.isKnown(request)) {
      refuse();
      return;
    }
    const name = path.startsWith(base)
      ? path.slice(base.length) || 'index.html' : '';
    const file = this.#files.get(name);
    if (file === undefined) send(404, htmlType, missingPage);
    else send(200, file.type, file.body);
  }

  #upgrade(request, socket, head) {
    const isRight = request.url === `${this.#access.base}feed` &&
      this.#access.mayConnect(request);
    if (!isRight) {
      refuseUpgrade(socket);
      return;
    }
    this.#sockets.handleUpgrade(request, socket, head, (page) => {
      page.on('error', () => {});
      this.#guard(page, () => this.#welcome(page));
    });
  }

  #guard(page, work) {
    this.#http.guard(work,
      () => page.close(codes.internalError, 'the preview met an error'));
  }

  #welcome(page) {
    if (this.#feed === null || this.#sockets.clients.size > mostPages) {
      page.close(codes.tryLater, `at most ${mostPages} pages may watch`);
      return;
    }
    const client = new PageClient(page, this.#branchCount);
    this.#feed.add(client);
    page.on('close', () => this.#feed.remove(client));
    page.on('message', (data, isBinary) => {
      const asked = isBinary ? null : parseRequest(data.toString());
      if (asked === null) page.close(codes.policy, 'not a known request');
      else this.#guard(page, () => this.#feed.handle(client, asked));
    });
  }
}
