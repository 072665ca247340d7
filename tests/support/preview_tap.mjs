/* global CanvasRenderingContext2D, VideoDecoder -- it runs in the page */

/**
 * Runs in the page before its own code and counts what the page is given and
 * what it makes of it, by branch: the packets by their layers, what goes to the
 * decoder, and when pictures are drawn.
 */
function count() {
  const ofBranch = () => ({ received: [0, 0, 0], decoded: 0 });
  const widths = new Map();
  const state = { branches: [] };
  const at = (branch) => state.branches[branch] ??= ofBranch();
  globalThis.tap = {
    reset: () => {
      state.branches = [];
    },
    read: (branch) => at(branch),
    /** Pictures a second that were drawn in the last two. */
    drawnRate: (canvas) => (canvas.drawnMs ?? [])
      .filter((ms) => ms > performance.now() - 2000).length / 2,
  };
  const BaseSocket = globalThis.WebSocket;
  globalThis.WebSocket = class extends BaseSocket {
    constructor(...args) {
      super(...args);
      this.addEventListener('message', ({ data }) => {
        if (typeof data === 'string') return;
        const view = new DataView(data);
        if (view.getUint8(0) !== 1) return;
        const branch = view.getUint8(1);
        widths.set(view.getUint16(4), branch);
        at(branch).received[view.getUint8(3)] += 1;
      });
    }
  };
  const { configure, decode } = VideoDecoder.prototype;
  VideoDecoder.prototype.configure = function (config) {
    this.branch = widths.get(config.codedWidth);
    return configure.call(this, config);
  };
  VideoDecoder.prototype.decode = function (chunk) {
    at(this.branch).decoded += 1;
    return decode.call(this, chunk);
  };
  const { drawImage } = CanvasRenderingContext2D.prototype;
  CanvasRenderingContext2D.prototype.drawImage = function (...args) {
    (this.canvas.drawnMs ??= []).push(performance.now());
    return drawImage.apply(this, args);
  };
}

/** Lets a page that is not loaded yet be counted. */
export function tapPage(page) {
  return page.call('Page.addScriptToEvaluateOnNewDocument',
    { source: `(${count})()` });
}

/** What was counted of a branch since the last reset. */
export const readTap = (page, branch) =>
  page.evaluate(`globalThis.tap.read(${branch})`);

export const resetTap = (page) => page.evaluate('globalThis.tap.reset()');

export const drawnRate = (page, branch) => page.evaluate('globalThis.tap' +
  `.drawnRate(document.querySelector('[data-branch="${branch}"] canvas'))`);
