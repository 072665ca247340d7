import { MediaFile, usualAudio } from './media_file.mjs';
import { numberedName } from './numbered_name.mjs';
import { OutputFile } from './output_file.mjs';

// A keyframe that is asked for comes a few pictures later.
const askAheadPictures = 3;

// Sound comes after the pictures of its time; this late it does not any more.
const soundPatienceUs = 1_500_000;

// What a file holds besides the data of packets, of which a second has some 80.
const beginningBytes = 8192;
const packetBytes = 24;
const soundPacketsPerSecond = 50;

/** How large a file is going to be, and how much it grows. */
class SizeGuess {
  #soundBytesPerSecond;
  #bytes = beginningBytes;
  #groupBytes = 0;
  #largestGroup = 0;
  #largestOther = 0;

  constructor(soundBitrate) {
    this.#soundBytesPerSecond = soundBitrate === null ? 0
      : soundBitrate / 8 + soundPacketsPerSecond * packetBytes;
  }

  add({ isKeyframe, data, durationUs }) {
    const bytes = data.length + packetBytes +
      durationUs / 1e6 * this.#soundBytesPerSecond;
    this.#bytes += bytes;
    if (isKeyframe) this.#groupBytes = 0;
    else this.#largestOther = Math.max(this.#largestOther, bytes);
    this.#groupBytes += bytes;
    this.#largestGroup = Math.max(this.#largestGroup, this.#groupBytes);
  }

  /** Begins with the next file, which grows as the last one did. */
  restart() {
    this.#bytes = beginningBytes;
  }

  /** True when one more group of pictures may be too much. */
  isFull(limit) {
    return this.#bytes + this.#largestGroup * 1.25 > limit;
  }

  /** True when not even the end of this group can be waited for. */
  isUrgent(limit) {
    return this.#bytes + 2 * askAheadPictures * this.#largestOther > limit;
  }
}

/**
 * A recording in numbered files, each up to so many seconds or bytes. Each
 * begins with a keyframe where the one before it ends, the sound too.
 */
export class Pieces {
  #name;
  #mayReplace;
  #limits;
  #audio;
  #onFile;
  #onTaken;
  #forceKeyframe;
  #hasAudio;
  #number = 0;
  #nextOutput;
  #current = null;
  #beginUs = null;
  #ending = [];
  #done = { seconds: 0, pictures: 0, size: 0 };
  #guess;
  #isAsked = false;
  #last = Promise.resolve();

  /** `onFile` is told of every file that is complete. */
  constructor(name, { mayReplace = false, seconds = Infinity,
    bytes = Infinity, audio = usualAudio, onFile = () => {},
    onTaken = () => {} }) {
    this.#name = name;
    this.#mayReplace = mayReplace;
    this.#limits = { us: seconds * 1e6, bytes };
    this.#audio = audio;
    this.#onFile = onFile;
    this.#onTaken = onTaken;
    this.#nextOutput = this.#take();
  }

  #sum(key) {
    return [this.#done, this.#current, ...this.#ending.map(({ file }) => file)]
      .reduce((sum, part) => sum + (part?.[key] ?? 0), 0);
  }

  get seconds() {
    return this.#sum('seconds');
  }

  get pictures() {
    return this.#sum('pictures');
  }

  get size() {
    return this.#sum('size');
  }

  async begin({ hasAudio, forceKeyframe }) {
    this.#hasAudio = hasAudio;
    this.#forceKeyframe = forceKeyframe;
    this.#guess = new SizeGuess(hasAudio ? this.#audio.bitrate : null);
    await this.#open();
  }

  addVideo(packet) {
    return this.#inOrder(() => this.#addVideo(packet));
  }

  addAudio(packet) {
    return this.#inOrder(() => this.#addAudio(packet));
  }

  #inOrder(work) {
    const result = this.#last.then(work);
    this.#last = result.catch(() => {});
    return result;
  }

  #take() {
    this.#number += 1;
    const output = new OutputFile(numberedName(this.#name, this.#number),
      { mayReplace: this.#mayReplace });
    if (output.identity !== null) this.#onTaken(output);
    return output;
  }

  async #open() {
    const output = this.#nextOutput ?? this.#take();
    this.#nextOutput = null;
    this.#current = new MediaFile(output,
      { hasAudio: this.#hasAudio, audio: this.#audio });
    this.#beginUs = null;
    await this.#current.start();
  }

  async #addVideo(packet) {
    const { timestampUs, durationUs, isKeyframe } = packet;
    if (this.#beginUs !== null) {
      const leftUs = this.#beginUs + this.#limits.us - timestampUs -
        askAheadPictures * durationUs;
      const { bytes } = this.#limits;
      if (isKeyframe) this.#isAsked = false;
      if (isKeyframe && (leftUs <= 0 || this.#guess.isFull(bytes))) {
        await this.#next(timestampUs);
      } else if (!this.#isAsked &&
        (leftUs <= durationUs || this.#guess.isUrgent(bytes))) {
        this.#isAsked = true;
        this.#forceKeyframe();
      }
    }
    this.#beginUs ??= timestampUs;
    this.#guess.add(packet);
    await this.#current.addVideo(packet);
    await this.#completeBefore(timestampUs - soundPatienceUs);
  }

  async #next(timestampUs) {
    this.#ending.push({ file: this.#current, endUs: timestampUs });
    this.#current = null;
    this.#guess.restart();
    if (!this.#hasAudio) await this.#completeBefore(Infinity);
    await this.#open();
  }

  async #addAudio(packet) {
    const endUs = packet.timestampUs + packet.durationUs;
    for (const ending of this.#ending) {
      if (packet.timestampUs < ending.endUs) await ending.file.addAudio(packet);
    }
    if (this.#beginUs === null || endUs > this.#beginUs) {
      await this.#current.addAudio(packet);
    }
    await this.#completeBefore(endUs);
  }

  /** Completes the files that nothing of comes any more. */
  async #completeBefore(timeUs) {
    while (this.#ending.length > 0 && this.#ending[0].endUs <= timeUs) {
      await this.#complete(this.#ending.shift().file);
    }
  }

  async #complete(file) {
    try {
      await file.close();
    } finally {
      const { name, seconds, pictures, size } = file;
      this.#done.seconds += seconds;
      this.#done.pictures += pictures;
      this.#done.size += size;
      if (pictures > 0) this.#onFile({ name, seconds, pictures, size });
    }
  }

  async close() {
    await this.#last;
    this.#nextOutput?.close();
    const files = [...this.#ending.map(({ file }) => file), this.#current];
    this.#ending = [];
    this.#current = null;
    let failure = null;
    for (const file of files) {
      if (file === null) continue;
      await this.#complete(file).catch((error) => {
        failure ??= error;
      });
    }
    if (failure !== null) throw failure;
  }
}
