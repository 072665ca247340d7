/* global document -- what is evaluated runs in the page */
import { once } from 'node:events';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { WebSocket } from 'ws';
import { savePageCoverage, startPageCoverage } from './page_coverage.mjs';
import { collectText, endHelper, startHelper, waitForText } from
  './processes.mjs';
import { until } from './until.mjs';

const flags = [
  '--headless=new', '--remote-debugging-port=0', '--no-first-run',
  '--disable-gpu', '--disable-background-networking', '--disable-sync',
  '--disable-component-update', '--disable-default-apps', '--mute-audio',
  // Connections of WebRTC to this machine itself, by its addresses.
  '--disable-features=WebRtcHideLocalIpsWithMdns',
  '--allow-loopback-in-peer-connection',
  '--autoplay-policy=no-user-gesture-required',
  // The machine may have no more shared memory than a container gets.
  '--disable-dev-shm-usage',
];

const startLimitMs = 60_000;

/** The protocol by which browsers are driven: numbered calls, and events. */
class Connection {
  #socket;
  #calls = new Map();
  #number = 0;
  #onEvent;

  constructor(socket, onEvent) {
    this.#socket = socket;
    this.#onEvent = onEvent;
    socket.on('message', (data) => this.#receive(JSON.parse(data)));
    socket.on('close', () => {
      for (const { reject } of this.#calls.values()) {
        reject(new Error('the browser is gone'));
      }
    });
  }

  #receive({ id, result, error, ...event }) {
    if (id === undefined) {
      this.#onEvent(event);
      return;
    }
    const { resolve, reject } = this.#calls.get(id);
    this.#calls.delete(id);
    if (error === undefined) resolve(result);
    else reject(new Error(error.message));
  }

  call(method, params = {}, sessionId = undefined) {
    this.#number += 1;
    const id = this.#number;
    this.#socket.send(JSON.stringify({ id, method, params, sessionId }));
    return new Promise((resolve, reject) => {
      this.#calls.set(id, { resolve, reject });
    });
  }
}

/** One tab. */
class Page {
  #connection;
  #session;
  /** What went wrong in the page: exceptions and refused resources. */
  complaints = [];

  constructor(connection, session) {
    this.#connection = connection;
    this.#session = session;
  }

  call(method, params) {
    return this.#connection.call(method, params, this.#session);
  }

  async goto(url) {
    await this.call('Page.navigate', { url });
  }

  /** Runs an expression, or a function with JSON arguments, in the page. */
  async evaluate(code, ...args) {
    const expression = typeof code === 'string' ? code
      : `(${code})(${args.map((value) => JSON.stringify(value)).join()})`;
    const { result, exceptionDetails } = await this.call('Runtime.evaluate',
      { expression, awaitPromise: true, returnByValue: true,
        userGesture: true });
    if (exceptionDetails !== undefined) {
      throw new Error(exceptionDetails.exception?.description ??
        exceptionDetails.text);
    }
    return result.value;
  }

  /** Waits until an expression in the page is truthy; gives its value. */
  until(code, what, timeoutMs = 30_000) {
    // A page that is being left has nothing to evaluate in.
    return until(() => this.evaluate(code).catch(() => false), what,
      timeoutMs);
  }

  text(selector) {
    return this.evaluate((wanted) =>
      document.querySelector(wanted)?.textContent ?? null, selector);
  }

  /** Presses the mouse in the middle of an element, as a person would. */
  async click(selector) {
    const { x, y } = await this.evaluate((wanted) => {
      const element = document.querySelector(wanted);
      element.scrollIntoView({ block: 'center' });
      const box = element.getBoundingClientRect();
      return { x: box.x + box.width / 2, y: box.y + box.height / 2 };
    }, selector);
    for (const type of ['mousePressed', 'mouseReleased']) {
      await this.call('Input.dispatchMouseEvent',
        { type, x, y, button: 'left', clickCount: 1 });
    }
  }

  async press(key) {
    const printable = key.length === 1 ? { text: key } : {};
    await this.call('Input.dispatchKeyEvent',
      { type: 'keyDown', key, ...printable });
    await this.call('Input.dispatchKeyEvent', { type: 'keyUp', key });
  }

  setSize(width, height) {
    return this.call('Emulation.setDeviceMetricsOverride',
      { width, height, deviceScaleFactor: 1, mobile: false });
  }

  setColours(scheme) {
    return this.call('Emulation.setEmulatedMedia',
      { features: [{ name: 'prefers-color-scheme', value: scheme }] });
  }

  async screenshot() {
    const { data } = await this.call('Page.captureScreenshot',
      { format: 'png' });
    return Buffer.from(data, 'base64');
  }

  async close() {
    await savePageCoverage(this);
    await this.call('Page.close');
  }
}

/** Starts a browser without a window and with a profile of its own. */
export async function startBrowser() {
  const profile =
    await mkdtemp(path.join(tmpdir(), 'linux-capture-browser-'));
  const child = startHelper('chromium', [
    ...flags,
    // Its sandbox refuses to run as root, as tests in a container do.
    ...process.getuid() === 0 ? ['--no-sandbox'] : [],
    `--user-data-dir=${profile}`, 'about:blank',
  ], { stdio: ['ignore', 'ignore', 'pipe'] });
  const errors = collectText(child.stderr);
  const pages = new Map();
  const stop = async () => {
    for (const page of pages.values()) {
      // Those that are closed have told already.
      await savePageCoverage(page).catch(() => {});
    }
    await endHelper(child);
    await rm(profile, { recursive: true, force: true, maxRetries: 10 });
  };
  try {
    const [, address] = await waitForText(child, errors,
      /DevTools listening on (ws:\S+)/, 'the browser', startLimitMs);
    const socket = new WebSocket(address, { perMessageDeflate: false });
    await once(socket, 'open');
    const connection = new Connection(socket, ({ method, params, sessionId }) => {
      const complaints = pages.get(sessionId)?.complaints;
      if (method === 'Runtime.exceptionThrown') {
        complaints?.push(params.exceptionDetails.exception?.description ??
          params.exceptionDetails.text);
      } else if (method === 'Log.entryAdded' &&
          params.entry.level === 'error') {
        complaints?.push(params.entry.text);
      }
    });
    return {
      stop,
      /** A tab; those of one `context` share their cookies. */
      async open(context = undefined) {
        const { targetId } = await connection.call('Target.createTarget',
          { url: 'about:blank', browserContextId: context });
        const { sessionId } = await connection.call('Target.attachToTarget',
          { targetId, flatten: true });
        const page = new Page(connection, sessionId);
        pages.set(sessionId, page);
        for (const part of ['Page', 'Runtime', 'Log']) {
          await page.call(`${part}.enable`);
        }
        await startPageCoverage(page);
        return page;
      },
      /** What another browser would be: no cookies in common. */
      async newContext() {
        const { browserContextId } =
          await connection.call('Target.createBrowserContext');
        return browserContextId;
      },
    };
  } catch (error) {
    await stop();
    throw new Error(`${error.message}\n${errors.text}`);
  }
}
