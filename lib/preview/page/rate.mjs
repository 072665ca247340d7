const windowMs = 2000;

// A few that come at once, as they do at a start, are no rate.
const shortestMs = 500;

/** How often something happens, over the last two seconds. */
export class Rate {
  #times = [];
  #startMs = null;

  add(nowMs) {
    this.#startMs ??= nowMs;
    this.#times.push(nowMs);
    this.#trim(nowMs);
  }

  #trim(nowMs) {
    while (this.#times.length > 0 && this.#times[0] < nowMs - windowMs) {
      this.#times.shift();
    }
  }

  clear() {
    this.#times = [];
    this.#startMs = null;
  }

  /**
   * Per second, null before there is enough to tell; what has stopped
   * happening goes down to 0.
   */
  read(nowMs) {
    this.#trim(nowMs);
    if (this.#startMs === null) return null;
    const watchedMs = nowMs - this.#startMs;
    if (watchedMs < shortestMs) return null;
    const [first, last] = [this.#times[0], this.#times.at(-1)];
    if (this.#times.length < 2) return watchedMs < windowMs ? null : 0;
    const period = (last - first) / (this.#times.length - 1);
    const spanMs = nowMs - last > 3 * period ? nowMs - first : last - first;
    return (this.#times.length - 1) / Math.max(spanMs, shortestMs) * 1000;
  }
}
