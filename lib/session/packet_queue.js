'use strict';

const { CaptureError } = require('./errors.js');

/**
 * A bounded queue between the native callbacks, which never wait, and one
 * reader, which may be slow. What happens when it is full is for the two kinds
 * below to say.
 */
class PacketQueue {
  #waiting = null;
  #isEnded = false;
  #error = null;

  constructor(limit) {
    this.limit = limit;
    this.packets = [];
    this.isRead = false;
    // Kept for the first reader; later ones begin with what comes then.
    this.isOpen = true;
    this.received = 0;
    this.delivered = 0;
    this.dropped = 0;
    this.unread = 0;
    // The next packet in does not follow the one before it.
    this.hasGap = false;
  }

  get isEnded() {
    return this.#isEnded;
  }

  /** What can be told about the reader. */
  counters() {
    return {
      hasReader: this.isRead,
      received: this.received,
      delivered: this.delivered,
      dropped: this.dropped,
      unread: this.unread,
      waiting: this.packets.length,
    };
  }

  /** Nothing more comes; what waits is still delivered, then the error. */
  end(error = null) {
    if (this.#isEnded) return;
    this.#isEnded = true;
    this.#error = error;
    if (this.packets.length === 0) this.#wake();
  }

  #wake() {
    const waiting = this.#waiting;
    this.#waiting = null;
    waiting?.();
  }

  append(packet) {
    packet.isAfterGap = this.hasGap;
    this.hasGap = false;
    this.packets.push(packet);
    this.#wake();
  }

  /** Gives up the first `count` packets. */
  discard(count) {
    if (count === 0) return;
    this.packets.splice(0, count);
    if (this.isRead) this.dropped += count;
    else this.unread += count;
    if (this.packets.length > 0) this.packets[0].isAfterGap = true;
    else this.hasGap = true;
  }

  /** Counts a packet that comes; false when nobody wants it. */
  accept() {
    if (this.isEnded) return false;
    this.received += 1;
    if (!this.isOpen) this.skip();
    return this.isOpen;
  }

  /** Gives up a packet that is not in the queue. */
  skip() {
    if (this.isRead) this.dropped += 1;
    else this.unread += 1;
    this.hasGap = this.received > 1;
  }

  /** What comes next does not follow what came last. */
  interrupt() {
    this.hasGap = this.received > 0;
  }

  /** Called when a reader comes, and when it has gone. */
  readerCame() {
    this.isOpen = true;
  }

  readerWent() {
    this.discard(this.packets.length);
    this.isOpen = false;
  }

  /** The iterator of the one reader. */
  read(name, limit) {
    if (this.isRead) {
      throw new CaptureError('ERR_CAPTURE_READER',
        `${name} has a reader already; end that one first`);
    }
    if (limit !== undefined) this.limit = limit;
    this.isRead = true;
    this.readerCame();
    const finish = () => {
      if (!this.isRead) return;
      this.readerWent();
      this.isRead = false;
      this.#wake();
    };
    let isOver = false;
    const next = async () => {
      while (!isOver && this.packets.length === 0 && !this.#isEnded) {
        await new Promise((resolve) => {
          this.#waiting = resolve;
        });
      }
      if (!isOver && this.packets.length > 0) {
        this.delivered += 1;
        return { value: this.packets.shift(), done: false };
      }
      const error = isOver ? null : this.#error;
      isOver = true;
      finish();
      if (error !== null) throw error;
      return { value: undefined, done: true };
    };
    // One call after the other, also for a reader that does not wait.
    let last = Promise.resolve();
    return {
      next: () => {
        const result = last.then(next);
        last = result.catch(() => {});
        return result;
      },
      return: async (value) => {
        isOver = true;
        finish();
        return { value, done: true };
      },
      [Symbol.asyncIterator]() {
        return this;
      },
    };
  }
}

/**
 * Pictures build on each other, so a full queue is emptied up to a keyframe:
 * one that already waits, else the next one, which is asked for.
 */
class VideoQueue extends PacketQueue {
  #needsKeyframe = true;
  #requestKeyframe;

  constructor(limit, requestKeyframe) {
    super(limit);
    this.#requestKeyframe = requestKeyframe;
  }

  push(packet) {
    if (!this.accept()) return;
    if (this.#needsKeyframe && !packet.isKeyframe) {
      this.skip();
      return;
    }
    this.#needsKeyframe = false;
    if (this.packets.length >= this.limit) {
      this.#makeRoom(packet.isKeyframe);
      if (this.#needsKeyframe) {
        this.skip();
        return;
      }
    }
    this.append(packet);
  }

  #makeRoom(isKeyframe) {
    const later =
      this.packets.findIndex((entry, index) => index > 0 && entry.isKeyframe);
    this.discard(later === -1 ? this.packets.length : later);
    this.#needsKeyframe = later === -1 && !isKeyframe;
    if (!this.#needsKeyframe) return;
    // Without a reader nobody waits for it; one that comes asks by itself.
    if (this.isRead) this.#requestKeyframe();
    else this.isOpen = false;
  }

  readerCame() {
    super.readerCame();
    if (this.#needsKeyframe && this.received > 0) this.#requestKeyframe();
  }

  readerWent() {
    super.readerWent();
    this.#needsKeyframe = true;
  }
}

/** Sound that comes too late is of no use: the oldest goes first. */
class AudioQueue extends PacketQueue {
  push(packet) {
    if (!this.accept()) return;
    if (this.packets.length >= this.limit) {
      this.discard(this.packets.length - this.limit + 1);
    }
    this.append(packet);
  }
}

module.exports = { AudioQueue, VideoQueue };
