'use strict';

// A keyframe of several branches at once would overrun the buffer of the socket
// that receives it: packets leave in small groups, at a rate well above that of
// the media.

const millisecondsAhead = 5;
const sound = 0;

/** Sends packets, the oldest of the most urgent kind first. */
class Pacer {
  #queues = [[], [], []];
  #send;
  #now;
  #budget = 0;
  #lastMs;
  #timer = null;
  #waitingBytes = 0;

  /** `send(entry)` is called for each packet when its time has come. */
  constructor({ bitsPerSecond, send, now = () => performance.now() }) {
    this.bytesPerMs = bitsPerSecond / 8000;
    this.#send = send;
    this.#now = now;
    this.#lastMs = now();
  }

  get waitingBytes() {
    return this.#waitingBytes;
  }

  /** How long what waits would take. */
  get waitingMs() {
    return this.#waitingBytes / this.bytesPerMs;
  }

  /** Sound, before what is sent again, before pictures. */
  pushSound(entry) {
    this.#push(entry, sound);
  }

  pushAgain(entry) {
    this.#push(entry, 1);
  }

  pushPicture(entry) {
    this.#push(entry, 2);
  }

  #push(entry, urgency) {
    this.#queues[urgency].push(entry);
    this.#waitingBytes += entry.packet.length;
    if (this.#timer === null) this.#sendSome();
  }

  #sendSome() {
    const now = this.#now();
    this.#budget = Math.min(
      this.#budget + (now - this.#lastMs) * this.bytesPerMs,
      millisecondsAhead * this.bytesPerMs);
    this.#lastMs = now;
    for (;;) {
      const queue = this.#queues.find(({ length }) => length > 0);
      if (queue === undefined) return;
      // Sound is small and must not wait for pictures.
      if (this.#budget <= 0 && queue !== this.#queues[sound]) break;
      const entry = queue.shift();
      this.#waitingBytes -= entry.packet.length;
      this.#budget -= entry.packet.length;
      this.#send(entry);
    }
    this.#timer = setTimeout(() => {
      this.#timer = null;
      this.#sendSome();
    }, Math.max(1, -this.#budget / this.bytesPerMs));
    this.#timer.unref();
  }

  stop() {
    clearTimeout(this.#timer);
    this.#queues = [[], [], []];
    this.#waitingBytes = 0;
    this.#timer = null;
  }
}

module.exports = { Pacer };
