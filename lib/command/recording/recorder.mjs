// Rates are those of the last two seconds, as a person expects of a display.
const windowUs = 2e6;

/** The pictures and bytes of the last moments. */
class RecentRate {
  #entries = [];
  #bytes = 0;

  add({ timestampUs, data }) {
    this.#entries.push({ timestampUs, bytes: data.length });
    this.#bytes += data.length;
    while (this.#entries[0].timestampUs < timestampUs - windowUs) {
      this.#bytes -= this.#entries.shift().bytes;
    }
  }

  read() {
    const spanUs = this.#entries.length < 2 ? 0
      : this.#entries.at(-1).timestampUs - this.#entries[0].timestampUs;
    const perSecond = (value) => (spanUs === 0 ? 0 : value / spanUs * 1e6);
    return {
      fps: perSecond(this.#entries.length - 1),
      bitsPerSecond: perSecond(this.#bytes * 8),
    };
  }
}

/** Moves what a session delivers into a file. */
export class Recorder {
  #session;
  #file;
  #duration;
  #rate = new RecentRate();
  #peak = 0;
  #pictures = 0;

  constructor(session, file, { duration = Infinity } = {}) {
    this.#session = session;
    this.#file = file;
    this.#duration = duration;
  }

  get pictures() {
    return this.#pictures;
  }

  /** Resolves when the session has ended and all of it is in the file. */
  async run() {
    const results = await Promise.allSettled([
      this.#copy(this.#session.video(), (packet) => this.#addVideo(packet)),
      this.#session.hasAudio ? this.#copy(this.#session.audio(),
        (packet) => this.#addAudio(packet)) : null,
    ]);
    const failed = results.find(({ status }) => status === 'rejected');
    if (failed !== undefined) throw failed.reason;
  }

  async #copy(packets, add) {
    try {
      for await (const packet of packets) await add(packet);
    } catch (error) {
      // A file that cannot be written is no reason to capture on.
      await this.#session.stop();
      throw error;
    }
  }

  async #addVideo(packet) {
    if (this.#file.seconds >= this.#duration) {
      // Not waited for: it ends when the readers have come to the end.
      this.#session.stop();
      return;
    }
    this.#rate.add(packet);
    this.#pictures += 1;
    await this.#file.addVideo(packet);
  }

  async #addAudio(packet) {
    this.#peak = Math.max(this.#peak, packet.peak);
    await this.#file.addAudio(packet);
  }

  /** How it goes; the level of sound is the loudest since the last look. */
  status() {
    const { video, audio } = this.#session.stats();
    const [branch] = video.branches;
    const peak = audio === null ? null : this.#peak;
    this.#peak = 0;
    return {
      seconds: this.#file.seconds,
      ...this.#rate.read(),
      dropped: branch === undefined ? 0
        : branch.droppedByModule + branch.reader.dropped,
      peak,
    };
  }
}
