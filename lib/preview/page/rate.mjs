const windowMs = 2000;

/** How often something happens, over the last two seconds. */
export class Rate {
  #times = [];

  add(nowMs) {
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
  }

  /** Per second; what has stopped happening goes down to 0. */
  read(nowMs) {
    this.#trim(nowMs);
    const [first, last] = [this.#times[0], this.#times.at(-1)];
    if (this.#times.length < 2) return 0;
    const period = (last - first) / (this.#times.length - 1);
    const spanMs = nowMs - last > 3 * period ? nowMs - first : last - first;
    return (this.#times.length - 1) / spanMs * 1000;
  }
}
