// A buffer this far off the place that its time gives it is put there; what is
// less is the jitter of the clocks, and stays out of the sound.
const toleranceUs = 40_000;

// Sound that lags so far behind the picture does not come any more, or not
// soon: the file goes on without it.
const patienceUs = 1_000_000;
const reserveUs = 500_000;

/**
 * Turns buffers of sound with times into one sound without holes: a track of
 * a file is as long as its samples, so what is missing becomes silence and
 * what was there before is cut off. The track begins at 0.
 */
export class AudioTimeline {
  #sampleRate;
  #channels;
  #framesOut = 0;

  constructor({ sampleRate, channels }) {
    this.#sampleRate = sampleRate;
    this.#channels = channels;
  }

  get endUs() {
    return this.#framesOut / this.#sampleRate * 1e6;
  }

  #piece(samples) {
    const frames = samples.length / this.#channels;
    const piece = { samples, frames, timestampUs: this.endUs };
    this.#framesOut += frames;
    return piece;
  }

  #silence(untilUs) {
    const frames =
      Math.round((untilUs - this.endUs) / 1e6 * this.#sampleRate);
    return frames <= 0 ? []
      : [this.#piece(new Int16Array(frames * this.#channels))];
  }

  /** What is to be written for a buffer: nothing, or some pieces. */
  add(timestampUs, samples) {
    const aheadUs = timestampUs - this.endUs;
    // The beginning is exact, since all that follows is placed by it.
    const tolerance = this.#framesOut === 0 ? 0 : toleranceUs;
    if (aheadUs > tolerance) {
      return [...this.#silence(timestampUs), this.#piece(samples)];
    }
    if (aheadUs >= -tolerance) return [this.#piece(samples)];
    const cut = Math.round(-aheadUs / 1e6 * this.#sampleRate) * this.#channels;
    return cut >= samples.length ? [] : [this.#piece(samples.subarray(cut))];
  }

  /** Silence in place of sound that is overdue at this time of the picture. */
  keepUp(videoUs) {
    return videoUs - this.endUs < patienceUs ? []
      : this.#silence(videoUs - reserveUs);
  }

  /** Silence up to the end of the picture. */
  finish(videoEndUs) {
    return this.#silence(videoEndUs);
  }
}
