const fullScale = 32_768;

/** The level of the whole sound since it was last read, from its samples. */
export class MixLevel {
  #peak = 0;
  #squares = 0;
  #count = 0;

  add({ samples, peak }) {
    this.#peak = Math.max(this.#peak, peak);
    for (const sample of samples) this.#squares += sample * sample;
    this.#count += samples.length;
  }

  read() {
    const rms = this.#count === 0 ? 0
      : Math.sqrt(this.#squares / this.#count) / fullScale;
    const level = { peak: this.#peak, rms };
    this.#peak = 0;
    this.#squares = 0;
    this.#count = 0;
    return level;
  }
}

const nameOfStream = (source) => source.applicationName ||
  source.processBinary || source.nodeName || source.mediaName ||
  (source.processId > 0 ? `process ${source.processId}` : null);

// A device's node has a technical name, its media the one for people.
const nameOfDevice = (source) => source.mediaName || source.nodeName || null;

/**
 * The levels of the single sources. Their samples stay in the module: the mean
 * magnitude follows from its sums, the peak is that of the last buffer.
 */
export class SourceLevels {
  #last = new Map();

  /** `audio` are its statistics. A source without a name has null. */
  read({ sources }) {
    const seen = new Map();
    const levels = sources.map((source, index) => {
      const { targetObject, samples, magnitudeSum: sum } = source;
      const key = `${index} ${targetObject}`;
      const last = this.#last.get(key) ?? { samples: 0, sum: 0 };
      seen.set(key, { samples, sum });
      const count = samples - last.samples;
      const isFresh = count > 0;
      return {
        name: source.kind === 'application' ? nameOfStream(source)
          : nameOfDevice(source),
        peak: isFresh ? source.lastPeak : 0,
        mean: isFresh ? (sum - last.sum) / count : 0,
      };
    });
    this.#last = seen;
    return levels;
  }
}
