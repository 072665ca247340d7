const spsType = 7;

// More than this many pictures in front of the decoder, and it will not catch
// up by itself.
const mostQueued = 20;

const hex = (byte) => byte.toString(16).padStart(2, '0');

/** The `codec` text of a keyframe in Annex B form. */
function codecOf(data) {
  for (let at = 0; at + 6 < data.length; at += 1) {
    if (data[at] === 0 && data[at + 1] === 0 && data[at + 2] === 1 &&
        (data[at + 3] & 0x1f) === spsType) {
      return `avc1.${Array.from(data.subarray(at + 4, at + 7), hex).join('')}`;
    }
  }
  return null;
}

/** Decodes one branch and draws it on a canvas as soon as it can. */
export class Picture {
  #canvas;
  #context;
  #decoder = null;
  #codec = null;
  #waitsForKeyframe = true;
  #isBehind = false;
  #isUnsupported = false;
  #capturedAtMs = new Map();
  #mostLayer = Infinity;
  #layer = Infinity;
  #onShown;
  #onFailure;

  constructor(canvas, { onShown, onFailure }) {
    this.#canvas = canvas;
    this.#context = canvas.getContext('2d', { alpha: false });
    this.#onShown = onShown;
    this.#onFailure = onFailure;
    /** Pictures that this page gave up on; those of layers do not count. */
    this.skipped = 0;
  }

  /** Leaves out the pictures of layers above this one. */
  setMostLayer(layer) {
    this.#mostLayer = layer;
    // Pictures of a higher layer build on the ones before them: what was left
    // out is only missed until the next of layer 0.
    this.#layer = Math.min(this.#layer, layer);
  }

  /** Starts over with the next keyframe. */
  restart() {
    this.#waitsForKeyframe = true;
    this.#isBehind = false;
    this.#capturedAtMs.clear();
    if (this.#decoder?.state === 'configured') this.#decoder.reset();
    this.#codec = null;
  }

  push(packet) {
    if (packet.isKeyframe && !this.#begin(packet)) return;
    if (packet.temporalId === 0) this.#layer = this.#mostLayer;
    if (this.#waitsForKeyframe) {
      if (this.#isBehind) this.skipped += 1;
      return;
    }
    if (packet.temporalId > this.#layer) return;
    if (this.#decoder.decodeQueueSize > mostQueued && !packet.isKeyframe) {
      this.#waitsForKeyframe = true;
      this.#isBehind = true;
      this.skipped += 1;
      return;
    }
    this.#capturedAtMs.set(packet.timestampUs, packet.capturedAtMs);
    this.#decoder.decode(new EncodedVideoChunk({
      type: packet.isKeyframe ? 'key' : 'delta',
      timestamp: packet.timestampUs,
      data: packet.data,
    }));
  }

  #begin({ data, width, height }) {
    if (this.#isUnsupported) return false;
    const codec = codecOf(data);
    if (codec === null) return false;
    this.#waitsForKeyframe = false;
    this.#isBehind = false;
    if (codec === this.#codec && this.#decoder.state === 'configured') {
      return true;
    }
    this.#codec = codec;
    if (this.#decoder === null || this.#decoder.state === 'closed') {
      this.#decoder = new VideoDecoder({
        output: (frame) => this.#draw(frame),
        error: (error) => this.#fail(error),
      });
    }
    // Without a description the data is taken for Annex B, which it is.
    this.#decoder.configure({
      codec, codedWidth: width, codedHeight: height, optimizeForLatency: true,
    });
    return true;
  }

  #draw(frame) {
    const { displayWidth: width, displayHeight: height, timestamp,
      colorSpace: { fullRange } } = frame;
    if (this.#canvas.width !== width || this.#canvas.height !== height) {
      this.#canvas.width = width;
      this.#canvas.height = height;
    }
    this.#context.drawImage(frame, 0, 0, width, height);
    frame.close();
    const capturedAtMs = this.#capturedAtMs.get(timestamp);
    this.#capturedAtMs.delete(timestamp);
    this.#onShown({ capturedAtMs, isFullRange: fullRange });
  }

  #fail(error) {
    this.#isUnsupported = error.name === 'NotSupportedError';
    this.#waitsForKeyframe = true;
    this.#codec = null;
    this.#capturedAtMs.clear();
    this.#onFailure(error);
  }
}
