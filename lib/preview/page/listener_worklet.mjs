// How much is kept between what comes in bursts and what is played evenly, and
// from where on the delay would be heard.
const startFrames = 4_800;
const mostFrames = 14_400;

/** Plays interleaved stereo as it comes; silence when nothing does. */
class ListenerProcessor extends AudioWorkletProcessor {
  #queue = [];
  #offset = 0;
  #frames = 0;
  #isPlaying = false;

  constructor() {
    super();
    this.port.onmessage = ({ data }) => {
      this.#queue.push(data);
      this.#frames += data.length / 2;
      while (this.#frames > mostFrames) this.#drop();
      this.#isPlaying ||= this.#frames >= startFrames;
    };
  }

  #drop() {
    this.#frames -= (this.#queue.shift().length - this.#offset) / 2;
    this.#offset = 0;
  }

  process(inputs, [[left, right]]) {
    if (!this.#isPlaying) return true;
    for (let frame = 0; frame < left.length; frame += 1) {
      if (this.#queue.length === 0) {
        this.#isPlaying = false;
        break;
      }
      const [block] = this.#queue;
      left[frame] = block[this.#offset] / 32_768;
      right[frame] = block[this.#offset + 1] / 32_768;
      this.#offset += 2;
      this.#frames -= 1;
      if (this.#offset >= block.length) {
        this.#queue.shift();
        this.#offset = 0;
      }
    }
    return true;
  }
}

registerProcessor('listener', ListenerProcessor);
