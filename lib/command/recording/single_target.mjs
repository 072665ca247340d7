import { MediaFile } from './media_file.mjs';

/** A recording that goes to one file, or to one who reads it. */
export class SingleTarget {
  #output;
  #audio;
  #file = null;

  /** `output` is an OutputFile or a PipeOutput. */
  constructor(output, { audio } = {}) {
    this.#output = output;
    this.#audio = audio;
  }

  get seconds() {
    return this.#file?.seconds ?? 0;
  }

  get pictures() {
    return this.#file?.pictures ?? 0;
  }

  get size() {
    return this.#output.size;
  }

  async begin({ hasAudio }) {
    this.#file = new MediaFile(this.#output, { hasAudio, audio: this.#audio });
    await this.#file.start();
  }

  addVideo(packet) {
    return this.#file.addVideo(packet);
  }

  addAudio(packet) {
    return this.#file.addAudio(packet);
  }

  /** Nothing more comes: who does not read is not waited for any longer. */
  hurry() {
    this.#output.hurry?.();
  }

  async close() {
    await (this.#file ?? this.#output).close();
  }
}
