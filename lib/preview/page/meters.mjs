const quietestDb = -60;

// The mark of the loudest moment stays a while, then sinks.
const holdMs = 1200;
const sinkDbPerSecond = 30;

const decibels = (value) => Math.max(quietestDb, 20 * Math.log10(value));
const partOf = (db) => 1 - db / quietestDb;

/** A level of sound: a bar for its mean, a mark for its peak. */
export class Meter {
  #element;
  #track;
  #held = { db: quietestDb, atMs: 0 };

  constructor(place, name) {
    const content = document.getElementById('meter').content.cloneNode(true);
    this.#element = content.querySelector('.meter');
    this.#track = this.#element.querySelector('.track');
    this.setName(name);
    place.append(content);
  }

  setName(name) {
    const label = this.#element.querySelector('.name');
    if (label.textContent === name) return;
    label.textContent = name;
    label.title = name;
    this.#track.setAttribute('aria-label', `Level of ${name}`);
  }

  /** Both from 0 to 1. */
  show(peak, mean) {
    const db = decibels(peak);
    this.#hold(db, performance.now());
    this.#track.style.setProperty('--level', partOf(decibels(mean)));
    this.#track.style.setProperty('--peak', partOf(this.#held.db));
    this.#track.setAttribute('aria-valuenow', db.toFixed(0));
    const text = db <= quietestDb ? 'silent'
      : `${db.toFixed(0)} dB`.replace('-', '−');
    this.#track.setAttribute('aria-valuetext', text);
    this.#element.querySelector('.level').textContent = text;
  }

  #hold(db, nowMs) {
    const { db: held, atMs } = this.#held;
    const sinkMs = Math.max(0, nowMs - atMs - holdMs);
    if (db >= held - sinkMs / 1000 * sinkDbPerSecond) {
      this.#held = { db, atMs: nowMs };
    }
  }

  clear() {
    this.#held = { db: quietestDb, atMs: 0 };
    this.show(0, 0);
  }

  remove() {
    this.#element.remove();
  }
}
