import { Plot } from './plots.mjs';

// Messages may come late, and two of them then at once.
const shortestMs = 250;

const perSecond = (now, before, key, seconds) =>
  Math.max(0, (now[key] - before[key]) / seconds);

/** Rates of the branches from two messages, and the plots of all of them. */
export class Statistics {
  #stage;
  #last = null;
  #lastLost = null;
  #plots;

  constructor(place, stage) {
    this.#stage = stage;
    const names = stage.tiles.map(({ name }) => name);
    const plot = (title, options) => new Plot(place, names, title, options);
    this.#plots = {
      fps: plot('Shown pictures', { unit: 'fps', digits: 1 }),
      bitrate: plot('Bitrate', { unit: 'Mbit/s', digits: 2 }),
      latency: plot('Latency', { unit: 'ms', digits: 0 }),
      lost: plot('Dropped', { unit: 'per second', digits: 0 }),
    };
  }

  add(message) {
    const last = this.#last;
    if (last !== null && message.atMs - last.atMs < shortestMs) return;
    this.#last = message;
    if (last === null) return;
    const seconds = (message.atMs - last.atMs) / 1000;
    const rows = this.#stage.tiles.map((tile, index) =>
      this.#row(tile, index, { message, last, seconds }));
    const losses = rows.map((row) => row.lost + row.withheld + row.skipped);
    const before = this.#lastLost ?? losses;
    this.#lastLost = losses;
    this.#plots.fps.add(rows.map((row) => row.fps));
    this.#plots.bitrate.add(rows.map((row) => row.bitsPerSecond / 1e6));
    this.#plots.latency.add(rows.map((row) => row.latencyMs));
    this.#plots.lost.add(losses.map((value, index) =>
      Math.max(0, value - before[index]) / seconds));
  }

  /** Takes away what was only true while pictures came; counts stay. */
  stop() {
    for (const tile of this.#stage.tiles) tile.clearFigures();
    for (const plot of Object.values(this.#plots)) plot.stop();
  }

  #row(tile, index, { message, last, seconds }) {
    const now = message.branches[index];
    const { fps, latencyMs, skipped } = tile.read();
    const row = {
      fps: tile.element.hidden ? null : fps,
      latencyMs: tile.element.hidden ? null : latencyMs,
      skipped,
      bitsPerSecond:
        8 * perSecond(now, last.branches[index], 'bytes', seconds),
      keyframes: now.keyframes,
      lost: now.dropped,
      withheld: message.withheld[index],
    };
    tile.showFigures(row);
    return row;
  }
}
