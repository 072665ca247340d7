'use strict';

const { randomUUID } = require('node:crypto');

const { PublishError } = require('./errors.js');
const { MediaSender } = require('./media_sender.js');
const { randomUint32 } = require('./rtp_stream.js');
const { readAnswer } = require('./sdp_answer.js');
const offer = require('./sdp_offer.js');
const { Transport } = require('./transport.js');
const { WhipClient } = require('./whip_client.js');

const connectLimitMs = 15_000;

// From the largest branch to the smallest.
const ridsByCount = [[], [], ['h', 'l'], ['h', 'm', 'l']];

const lostError = (message) =>
  new PublishError('ERR_PUBLISH_LOST', message, { mayPass: true });

/** What the states of the transport mean for what waits for it. */
const failures = {
  unreachable: () => new PublishError('ERR_PUBLISH_UNREACHABLE',
    'no way for media to the server was found', { mayPass: true }),
  lost: () => lostError('the server does not answer any more'),
  closed: () => lostError('the server ended the connection'),
};

/**
 * One session with the server, from the offer to its end. `lost` resolves with
 * the error that ended it; not when it is closed from here.
 */
class Connection {
  #whip;
  #plan;
  #transport;
  #connected;
  #sender = null;

  constructor({ url, token }, plan) {
    this.#whip = new WhipClient({ url, token });
    this.#plan = plan;
    this.#connected = withResolvers();
    this.#connected.promise.catch(() => {});
    const lost = withResolvers();
    this.lost = lost.promise;
    this.#transport = new Transport({
      onState: (state, error) => {
        if (state === 'connected') {
          this.#connected.resolve();
          return;
        }
        const failure = error ?? failures[state]?.();
        if (failure === undefined) return;
        this.#connected.reject(failure);
        lost.resolve(failure);
      },
      onReport: (datagram) => this.#sender?.takeReports(datagram),
    });
  }

  get sender() {
    return this.#sender;
  }

  /** Resolves when media can go. */
  async open(signal) {
    const servers = await this.#whip.askForServers(signal);
    const local = await this.#transport.open(
      { servers, isServerHere: this.#whip.isOnThisMachine });
    const rids = ridsByCount[this.#plan.branchCount];
    const numbers = {
      name: randomUUID(),
      streams: Array.from({ length: this.#plan.branchCount }, () =>
        ({ ssrc: randomUint32(), repairSsrc: randomUint32() })),
      audio: this.#plan.hasAudio ? randomUint32() : null,
    };
    const text = await this.#whip.publish(offer.makeOffer({
      local,
      video: { streams: numbers.streams, rids },
      audio: numbers.audio === null ? null : { ssrc: numbers.audio },
      name: numbers.name,
    }), signal);
    const answer = readAnswer(text, {
      extensions: offer.extensions, rids, hasAudio: this.#plan.hasAudio,
    });
    this.#transport.connect(answer.transport, await this.#whip.laterRelays());
    await this.#waitForConnected(signal);
    this.#sender = new MediaSender({
      ...this.#plan, answer, numbers, rids,
      send: (packet) => this.#transport.send(packet),
    });
  }

  async #waitForConnected(signal) {
    const limit = setTimeout(() => this.#connected.reject(
      new PublishError('ERR_PUBLISH_UNREACHABLE',
        'no way for media to the server was found in time',
        { mayPass: true })), connectLimitMs);
    const abort = () => this.#connected.reject(
      new PublishError('ABORT_ERR', 'the publication was ended'));
    signal?.addEventListener('abort', abort, { once: true });
    if (signal?.aborted) abort();
    try {
      await this.#connected.promise;
    } finally {
      clearTimeout(limit);
      signal?.removeEventListener('abort', abort);
    }
  }

  /** Ends it here and at the server; never throws. */
  async close() {
    this.#sender?.stop();
    await Promise.all([this.#transport.close(), this.#whip.end()]);
  }
}

function withResolvers() {
  const parts = {};
  parts.promise = new Promise((resolve, reject) => {
    Object.assign(parts, { resolve, reject });
  });
  return parts;
}

module.exports = { Connection };
