'use strict';

// The door of a conference server: an offer is posted, the answer comes back
// with the address of the session, which is deleted at the end (RFC 9725).

const { PublishError } = require('./errors.js');
const { findIceServers } = require('./ice_servers.js');

const askLimitMs = 3_000;
const postLimitMs = 10_000;
const deleteLimitMs = 2_000;
const mostRedirects = 5;
const longestAnswer = 262_144;

/** The server has its own name for a page, but not a secret of ours in it. */
const shownUrl = (url) => `${url.origin}${url.pathname}`;

const isLoopback = ({ hostname }) =>
  /^(localhost|127(\.\d{1,3}){3}|\[::1\])$/.test(hostname);

/** HTTPS, except to this machine itself. */
const isSafe = (url) => url.protocol === 'https:' ||
  (url.protocol === 'http:' && isLoopback(url));

/**
 * Where an answer from `url` leads; null where it may not be followed. What is
 * elsewhere must not reach, through us, what only listens to this machine.
 */
function placeBehind(location, url) {
  if (!URL.canParse(location, url)) return null;
  const next = new URL(location, url);
  return isSafe(next) && next.username === '' && next.password === '' &&
    (isLoopback(url) || !isLoopback(next)) ? next : null;
}

const certificateCodes = new Set([
  'CERT_HAS_EXPIRED', 'DEPTH_ZERO_SELF_SIGNED_CERT',
  'ERR_TLS_CERT_ALTNAME_INVALID', 'SELF_SIGNED_CERT_IN_CHAIN',
  'UNABLE_TO_GET_ISSUER_CERT', 'UNABLE_TO_GET_ISSUER_CERT_LOCALLY',
  'UNABLE_TO_VERIFY_LEAF_SIGNATURE',
]);

function fromFetch(error, url, signal) {
  if (signal?.aborted) {
    return new PublishError('ABORT_ERR', 'the publication was ended',
      { cause: error });
  }
  const code = error.cause?.code ?? error.name;
  if (certificateCodes.has(code)) {
    return new PublishError('ERR_PUBLISH_CERTIFICATE',
      `the certificate of ${url.origin} cannot be trusted (${code}); for one ` +
        'of your own, start Node.js with NODE_EXTRA_CA_CERTS=FILE',
      { cause: error });
  }
  return new PublishError('ERR_PUBLISH_UNREACHABLE', code === 'TimeoutError'
    ? `${url.origin} gave no answer` : `${url.origin} cannot be reached: ${
      error.cause?.code ?? error.cause?.message ?? error.message}`,
  { cause: error, mayPass: true });
}

// Among them 409: the name may still be taken by the connection before.
const passing = new Set([408, 409, 425, 429]);

function fromStatus(status, url) {
  const where = shownUrl(url);
  switch (status) {
    case 401: case 403:
      return new PublishError('ERR_PUBLISH_UNAUTHORIZED',
        `${where} does not take this token, or wants one (${status})`);
    case 404: case 405: case 410:
      return new PublishError('ERR_PUBLISH_NOT_FOUND',
        `${where} is no address to publish to (${status})`);
    case 406: case 415: case 422:
      return new PublishError('ERR_PUBLISH_REFUSED',
        `${where} refuses what is offered (${status}): it may not allow H.264`);
    default:
      return new PublishError('ERR_PUBLISH_REFUSED',
        `${where} refuses (${status})`,
        { mayPass: passing.has(status) || status >= 500 });
  }
}

/** The text of an answer, up to a length that none has. */
async function readText(response, url) {
  let text = '';
  const decoder = new TextDecoder();
  for await (const chunk of response.body ?? []) {
    text += decoder.decode(chunk, { stream: true });
    if (text.length > longestAnswer) {
      throw new PublishError('ERR_PUBLISH_ANSWER',
        `${url.origin} answers without an end`);
    }
  }
  return text + decoder.decode();
}

class WhipClient {
  #url;
  #token;
  #resource = null;
  #link = null;

  constructor({ url, token }) {
    this.#url = url;
    this.#token = token;
  }

  get isOnThisMachine() {
    return isLoopback(this.#url);
  }

  /** One request; the token goes to the origin that it was given for. */
  async #request(method, url, { headers = {}, body, limitMs, signal }) {
    const withToken = this.#token !== null && url.origin === this.#url.origin
      ? { authorization: `Bearer ${this.#token}` } : {};
    const limit = AbortSignal.timeout(limitMs);
    try {
      return await fetch(url, {
        method,
        body,
        headers: { ...headers, ...withToken },
        // By hand: a redirection must not take the token elsewhere.
        redirect: 'manual',
        signal: signal === undefined ? limit
          : AbortSignal.any([limit, signal]),
      });
    } catch (error) {
      throw fromFetch(error, url, signal);
    }
  }

  /** The servers that help to find a way, as far as they are told before. */
  async askForServers(signal) {
    try {
      const response = await this.#request('OPTIONS', this.#url,
        { limitMs: askLimitMs, signal });
      await response.body?.cancel();
      this.#link = response.headers.get('link');
      return await findIceServers(this.#link);
    } catch (error) {
      if (error.code === 'ABORT_ERR') throw error;
      // The offer will tell what is wrong.
      return [];
    }
  }

  /**
   * The relays that were told with the answer, and not before. A server that
   * tells addresses is of no use then: the offer has gone.
   */
  async laterRelays() {
    const link = this.#link;
    this.#link = null;
    const servers = await findIceServers(link);
    return servers.filter(({ kind }) => kind !== 'stun');
  }

  /** Posts the offer and returns the answer. */
  async publish(offer, signal) {
    let url = this.#url;
    for (let count = 0; count <= mostRedirects; count += 1) {
      const response = await this.#request('POST', url, {
        headers: { 'content-type': 'application/sdp' },
        body: offer,
        limitMs: postLimitMs,
        signal,
      });
      const location = response.headers.get('location');
      if ([307, 308].includes(response.status) && location !== null) {
        await response.body?.cancel();
        url = this.#follow(location, url);
        continue;
      }
      return this.#readAnswer(response, url, location, signal);
    }
    throw new PublishError('ERR_PUBLISH_REFUSED',
      `${shownUrl(this.#url)} redirects for ever`);
  }

  #follow(location, url) {
    const next = placeBehind(location, url);
    if (next === null) {
      throw new PublishError('ERR_PUBLISH_REFUSED',
        `${url.origin} redirects to what may not be followed`);
    }
    return next;
  }

  async #readAnswer(response, url, location, signal) {
    if (response.status !== 201) {
      await response.body?.cancel();
      throw fromStatus(response.status, url);
    }
    const link = response.headers.get('link');
    this.#link = link === this.#link ? null : link;
    if (location !== null) this.#resource = placeBehind(location, url);
    try {
      return await readText(response, url);
    } catch (error) {
      throw error instanceof PublishError ? error
        : fromFetch(error, url, signal);
    }
  }

  /** Ends the session at the server, if there is one; never throws. */
  async end() {
    const resource = this.#resource;
    this.#resource = null;
    if (resource === null) return;
    try {
      const response = await this.#request('DELETE', resource,
        { limitMs: deleteLimitMs });
      await response.body?.cancel();
    } catch {
      // The server notices by itself that nothing comes any more.
    }
  }
}

module.exports = { WhipClient, isSafe };
