import { EventEmitter } from 'node:events';

/** An async iterator that is fed from outside. */
class Channel {
  #packets = [];
  #wake = null;
  #isEnded = false;

  push(packet) {
    this.#packets.push(packet);
    this.#wake?.();
  }

  end() {
    this.#isEnded = true;
    this.#wake?.();
  }

  async *[Symbol.asyncIterator]() {
    for (;;) {
      while (this.#packets.length > 0) yield this.#packets.shift();
      if (this.#isEnded) return;
      await new Promise((resolve) => {
        this.#wake = resolve;
      });
    }
  }
}

/**
 * What the preview needs of a capture, under the control of a test: packets
 * come when the test sends them, and what the preview asks for is written down.
 */
export class FakeCapture {
  #channels;
  #number = 0;
  isActive = true;
  isPaused = false;
  hasAudio = false;
  events = new EventEmitter();
  source = { type: 'window', title: 'A test', id: 1 };
  /** When timestamps began, as the session tells it. */
  clockOriginUs = 0;
  keyframesAsked = 0;
  bitratesAsked = [];

  constructor({ branchCount = 1, isHardware = false } = {}) {
    this.isHardware = isHardware;
    this.branches = Array.from({ length: branchCount }, (_, branch) =>
      ({ branch, width: 64, height: 32, fps: 30 }));
    this.#channels = this.branches.map(() => new Channel());
  }

  video({ branch }) {
    return this.#channels[branch];
  }

  send({ branch = 0, isKeyframe = false, size = 100,
    data = Buffer.alloc(size) } = {}) {
    this.#number += 1;
    this.#channels[branch].push({
      type: 'video', branch, isKeyframe, temporalId: 0,
      timestampUs: this.#number * 1000, width: 64, height: 32,
      data,
    });
    return this.#number * 1000;
  }

  forceKeyframe() {
    this.keyframesAsked += 1;
    return true;
  }

  pause() {
    this.isPaused = true;
    this.events.emit('paused');
  }

  resume() {
    this.isPaused = false;
    this.events.emit('resumed');
  }

  setBitrate(bitsPerSecond) {
    this.bitratesAsked.push(bitsPerSecond);
  }

  stats() {
    return {
      encoder: { name: 'fake', isHardware: this.isHardware },
      video: {
        layers: 1,
        branches: this.branches.map(() => ({
          targetBitsPerSecond: 4_000_000,
          frames: 0, keyframes: 0, bytes: 0, framesPerLayer: [0, 0, 0],
          droppedByModule: 0, reader: { dropped: 0 },
        })),
      },
      audio: null,
      sync: { clockOriginUs: this.clockOriginUs },
      errors: { pipeline: 0, encoder: 0 },
    };
  }

  end() {
    this.isActive = false;
    for (const channel of this.#channels) channel.end();
  }
}
