'use strict';

// A keyframe of several branches at once would overrun the buffer of the socket
// that receives it: packets leave in small groups, at a rate well above that of
// the media.

// Each group is a wake-up here and a system call in the program behind: as many
// packets as a socket takes without trouble.
const groupMs = 5;
// What a late timer left behind is made up for, up to this.
const longestGroupMs = 10;

/** Sends packets in groups, the oldest of the most urgent kind first. */
class Pacer {
  #queues = [[], []];
  #send;
  #now;
  #budget = 0;
  #lastMs;
  #timer = null;
  #waitingBytes = 0;

  /** `send(entry)` is called for each packet when its time has come. */
  constructor({ bitsPerSecond, send, now = () => performance.now() }) {
    this.setRate(bitsPerSecond);
    this.#send = send;
    this.#now = now;
    this.#lastMs = now();
  }

  setRate(bitsPerSecond) {
    this.bytesPerMs = bitsPerSecond / 8000;
  }

  get waitingBytes() {
    return this.#waitingBytes;
  }

  /** How long what waits would take. */
  get waitingMs() {
    return this.#waitingBytes / this.bytesPerMs;
  }

  /** At once: sound is small and must not wait for pictures. */
  pushSound(entry) {
    this.#budget -= entry.packet.length;
    this.#send(entry);
  }

  /** Before pictures. */
  pushAgain(entry) {
    this.#push(entry, 0);
  }

  pushPicture(entry) {
    this.#push(entry, 1);
  }

  #push(entry, urgency) {
    this.#queues[urgency].push(entry);
    this.#waitingBytes += entry.packet.length;
    if (this.#timer === null) this.#sendSome(groupMs);
  }

  #sendSome(mostMs) {
    const now = this.#now();
    this.#budget = Math.min(
      this.#budget + (now - this.#lastMs) * this.bytesPerMs,
      mostMs * this.bytesPerMs);
    this.#lastMs = now;
    for (const queue of this.#queues) {
      let taken = 0;
      while (taken < queue.length && this.#budget > 0) {
        const entry = queue[taken];
        taken += 1;
        this.#waitingBytes -= entry.packet.length;
        this.#budget -= entry.packet.length;
        this.#send(entry);
      }
      queue.splice(0, taken);
    }
    if (this.#queues.every(({ length }) => length === 0)) return;
    this.#timer = setTimeout(() => {
      this.#timer = null;
      this.#sendSome(longestGroupMs);
    }, groupMs);
    this.#timer.unref();
  }

  stop() {
    clearTimeout(this.#timer);
    this.#queues = [[], []];
    this.#waitingBytes = 0;
    this.#timer = null;
  }
}

module.exports = { Pacer };
