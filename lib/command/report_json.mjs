import process from 'node:process';

const periodMs = 1000;

const rounded = (value, digits) => Number(value.toFixed(digits));

/** Tells programs how a recording goes: one JSON object a line. */
export class JsonReport {
  #out;
  #timer = null;

  constructor(stream = process.stdout) {
    this.#out = stream;
  }

  #tell(event, values = {}) {
    this.#out.write(`${JSON.stringify({ event, ...values })}\n`);
  }

  /** What a person is to do: programs have no use for it. */
  advice() {}

  started({ capture, output }) {
    const [{ width, height, fps }] = capture.branches;
    this.#tell('started', {
      // Who sends a signal sends it to the first of the two processes.
      pid: process.ppid,
      output,
      source: capture.source,
      width,
      height,
      fps,
      hasAudio: capture.hasAudio,
    });
  }

  startProgress(read) {
    const tell = () => {
      const { seconds, fps, bitsPerSecond, peak, ...rest } = read();
      this.#tell('progress', {
        seconds: rounded(seconds, 3),
        fps: rounded(fps, 2),
        bitsPerSecond: Math.round(bitsPerSecond),
        peak: peak === null ? null : rounded(peak, 4),
        ...rest,
      });
    };
    this.#timer = setInterval(tell, periodMs);
  }

  stopProgress() {
    clearInterval(this.#timer);
  }

  paused() {
    this.#tell('paused');
  }

  resumed() {
    this.#tell('resumed');
  }

  trouble({ message, code = null }) {
    this.#tell('trouble', { message, code });
  }

  recovered({ message }) {
    this.#tell('recovered', { message });
  }

  file({ name, seconds, pictures, size }) {
    this.#tell('file', {
      file: name, seconds: rounded(seconds, 3), pictures, bytes: size,
    });
  }

  ended({ end, failure, summary, files }) {
    const { reason, error, detail } =
      end ?? { reason: 'error', error: failure, detail: null };
    this.#tell('ended', {
      reason,
      error: error?.message ?? null,
      detail,
      files,
      ...summary === null ? {} : {
        seconds: rounded(summary.seconds, 3),
        pictures: summary.pictures,
        bytes: summary.size,
        dropped: summary.dropped,
      },
    });
  }
}
