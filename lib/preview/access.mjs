import { createHash, randomBytes, timingSafeEqual } from 'node:crypto';

const randomText = (bytes) => randomBytes(bytes).toString('base64url');

const cookieName = 'linux_capture_preview';

/** Compares without telling by its duration how much of a text was right. */
function isSame(given, expected) {
  const digest = (text) => createHash('sha256').update(text).digest();
  return timingSafeEqual(digest(given), digest(expected));
}

function cookieOf(request) {
  for (const part of (request.headers.cookie ?? '').split(';')) {
    const [name, value] = part.trim().split('=');
    if (name === cookieName) return value ?? '';
  }
  return '';
}

/**
 * Who may see the capture. Other users of the machine reach the port too, and
 * so does every page of the web that the same browser shows: the address holds
 * a token that is good for one use, for which the browser gets a cookie.
 */
export class Access {
  #token = randomText(16);
  #secret = randomText(24);

  constructor(port) {
    this.host = `127.0.0.1:${port}`;
    this.origin = `http://${this.host}`;
    // Browsers send a cookie to all ports of a host. Below a path that cannot
    // be guessed, no other local server gets to see this one.
    this.base = `/${randomText(12)}/`;
    this.address = `${this.origin}/?token=${this.#token}`;
  }

  /** A page of the web can give its own name the address 127.0.0.1. */
  isForHere(request) {
    return request.headers.host === this.host;
  }

  /** True once, for the right token. */
  useToken(token) {
    if (this.#token === null || !isSame(token, this.#token)) return false;
    this.#token = null;
    return true;
  }

  get cookie() {
    return `${cookieName}=${this.#secret}; Path=${this.base}; HttpOnly; ` +
      'SameSite=Strict';
  }

  isKnown(request) {
    return this.isForHere(request) && isSame(cookieOf(request), this.#secret);
  }

  /** WebSockets are open to pages of all origins unless a server looks. */
  mayConnect(request) {
    return this.isKnown(request) && request.headers.origin === this.origin;
  }
}
