import { showBanner } from './banners.mjs';
import { Picture } from './picture.mjs';
import { Rate } from './rate.mjs';

/** Where pictures were dropped, as far as any were. */
function causesOf({ lost, withheld, skipped }) {
  const causes = [
    [lost, 'in the capture'],
    [withheld, 'on the way here'],
    [skipped, 'by the decoder'],
  ].filter(([count]) => count > 0).map(([count, where]) => `${count} ${where}`);
  return causes.length === 0 ? '' : `: ${causes.join(', ')}`;
}

/** One branch: its picture and the figures around it. */
class Tile {
  #picture;
  #rate = new Rate();
  #latencySum = 0;
  #latencyCount = 0;

  constructor(description, { askKeyframe, onFirst }) {
    const { branch, width, height, fps } = description;
    const content =
      document.getElementById('tile').content.cloneNode(true);
    this.element = content.querySelector('.tile');
    this.element.dataset.branch = branch;
    this.name = branch === 0 ? 'Primary' : `Branch ${branch}`;
    this.#write('.text', this.name);
    this.#write('.size', `${width} × ${height}, ${fps} fps`);
    const canvas = this.element.querySelector('canvas');
    canvas.width = width;
    canvas.height = height;
    canvas.setAttribute('role', 'img');
    canvas.setAttribute('aria-label',
      `The live picture of branch ${branch}, ${width} by ${height} pixels`);
    const full = this.element.querySelector('.full');
    full.setAttribute('aria-label', `Branch ${branch} on the full screen`);
    full.hidden = !document.fullscreenEnabled;
    full.addEventListener('click', () => this.toggleFullScreen());
    this.shown = 0;
    this.#picture = new Picture(canvas, {
      onShown: ({ capturedAtMs, ...picture }) => {
        if (this.shown === 0) {
          this.element.classList.add('has-picture');
          onFirst(picture);
        }
        this.#count(capturedAtMs);
      },
      onFailure: (error) => {
        showBanner('error', `Branch ${branch} cannot be decoded here.`,
          error.message);
        // What this browser cannot do at all is not tried again.
        if (error.name !== 'NotSupportedError') askKeyframe();
      },
    });
  }

  #write(selector, text) {
    this.element.querySelector(selector).textContent = text;
  }

  #count(capturedAtMs) {
    const now = performance.now();
    this.shown += 1;
    this.#rate.add(now);
    if (capturedAtMs === undefined) return;
    // The times of a branch keep to its rate, and may lie a few milliseconds
    // after the moment at which a picture was taken.
    this.#latencySum +=
      Math.max(performance.timeOrigin + now - capturedAtMs, 0);
    this.#latencyCount += 1;
  }

  push(packet) {
    this.#picture.push(packet);
  }

  setMostLayer(layer) {
    this.#picture.setMostLayer(layer);
  }

  restart() {
    this.#picture.restart();
    this.#rate.clear();
  }

  /** The rate of what is shown, and its mean latency since the last call. */
  read() {
    const latencyMs = this.#latencyCount === 0 ? null
      : this.#latencySum / this.#latencyCount;
    this.#latencySum = 0;
    this.#latencyCount = 0;
    return {
      fps: this.#rate.read(performance.now()),
      latencyMs,
      skipped: this.#picture.skipped,
    };
  }

  showFigures({ fps, latencyMs, bitsPerSecond, keyframes, ...losses }) {
    this.#write('.fps', fps === null ? '–' : fps.toFixed(1));
    this.#write('.rate', (bitsPerSecond / 1e6).toFixed(2));
    this.#write('.latency', latencyMs === null ? '–' : latencyMs.toFixed(0));
    this.#write('.keyframes', keyframes);
    this.#write('.dropped',
      losses.lost + losses.withheld + losses.skipped);
    this.#write('.causes', causesOf(losses));
  }

  clearFigures() {
    for (const selector of ['.fps', '.rate', '.latency']) {
      this.#write(selector, '–');
    }
  }

  toggleFullScreen() {
    if (document.fullscreenElement === null) this.element.requestFullscreen();
    else document.exitFullscreen();
  }
}

/** All branches, or one of them. */
export class Stage {
  #element;
  #view = 'all';

  constructor(element, branches, actions) {
    this.#element = element;
    this.tiles = branches.map((branch) => new Tile(branch, actions));
    element.replaceChildren(...this.tiles.map((tile) => tile.element));
    element.dataset.count = branches.length;
  }

  /** The branches that are to be seen. */
  get visible() {
    return this.#view === 'all' ? this.tiles.map((_, branch) => branch)
      : [this.#view];
  }

  /** "all", or the number of a branch. */
  show(view) {
    this.#view = view;
    this.#element.dataset.view = view === 'all' ? 'all' : 'one';
    for (const [branch, tile] of this.tiles.entries()) {
      const isVisible = this.visible.includes(branch);
      if (isVisible && tile.element.hidden) tile.restart();
      tile.element.hidden = !isVisible;
    }
  }

  push(packet) {
    const tile = this.tiles[packet.branch];
    // A few may still be under way for a branch that was left.
    if (!tile.element.hidden) tile.push(packet);
  }

  setMostLayer(layer) {
    for (const tile of this.tiles) tile.setMostLayer(layer);
  }

  restart() {
    for (const tile of this.tiles) tile.restart();
  }

  toggleFullScreen() {
    this.tiles[this.visible[0]].toggleFullScreen();
  }
}
