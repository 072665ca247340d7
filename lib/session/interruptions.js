'use strict';

// How often the module is asked whether a picture can be read again.
const askPeriodMs = 200;

const recoveries = Object.freeze({
  'display-stalled': 'the X server answers again',
  'format-changed': 'the screen cast was opened anew and goes on',
  'rectangle-off-screen': 'the rectangle is on the screen again',
  'sound-server-stalled': 'the sound server answers again',
  'source-stalled': 'the source goes on',
  'window-hidden': 'the window can be read again',
});

// Pictures come meanwhile, of which each is the last one that could be read;
// the statistics tell when that is over. Otherwise nothing comes.
const isRepeating = (code) =>
  code === 'rectangle-off-screen' || code === 'window-hidden';

// The session itself has to do something; what comes before that is old.
const isReopening = (code) => code === 'format-changed';

/** True for the code of an event after which a capture goes on by itself. */
const isPassing = (code) =>
  Object.hasOwn(recoveries, code) && !isReopening(code);

/** What a running capture is living through, and when that is over. */
class Interruptions {
  #readCode;
  #onOver;
  #current = new Map();
  #timer = null;

  /**
   * `readCode` reads the code that the module's statistics have; `onOver` is
   * called with the error and what has become of it.
   */
  constructor({ readCode, onOver }) {
    this.#readCode = readCode;
    this.#onOver = onOver;
  }

  /** False when the same was told before and is not over yet. */
  begin(kind, error) {
    const code = error.nativeCode;
    const present = this.#current.get(code);
    if (present !== undefined) {
      present.isReopened = false;
      return false;
    }
    this.#current.set(code, { kind, error });
    if (isRepeating(code)) {
      this.#timer ??= setInterval(() => this.#ask(), askPeriodMs);
      this.#timer.unref();
    }
    return true;
  }

  /** A packet of this kind, "video" or "audio", has come. */
  packetCame(kind) {
    if (this.#current.size === 0) return;
    for (const [code, entry] of this.#current) {
      if (entry.kind !== kind || isRepeating(code)) continue;
      if (!isReopening(code) || entry.isReopened) this.#end(code);
    }
  }

  /** What comes from now on comes from the source as it was opened anew. */
  reopened() {
    for (const [code, entry] of this.#current) {
      if (isReopening(code)) entry.isReopened = true;
    }
  }

  stop() {
    clearInterval(this.#timer);
    this.#timer = null;
    this.#current.clear();
  }

  #ask() {
    const present = this.#readCode();
    const repeating = [...this.#current.keys()].filter(isRepeating);
    const over = repeating.filter((code) => code !== present);
    if (over.length === repeating.length) {
      clearInterval(this.#timer);
      this.#timer = null;
    }
    for (const code of over) this.#end(code);
  }

  #end(code) {
    const { error } = this.#current.get(code);
    this.#current.delete(code);
    this.#onOver({ error, message: recoveries[code] });
  }
}

module.exports = { Interruptions, isPassing, isReopening };
