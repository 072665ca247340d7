// A page that does not keep up is sent no more once this much waits for it:
// a second or two of pictures.
const mostWaitingBytes = 1 << 20;

/** One open page: what it watches, and what is held back from it. */
export class PageClient {
  #socket;
  #branches;
  #wantsSound = false;

  constructor(socket, branchCount) {
    this.#socket = socket;
    this.#branches = Array.from({ length: branchCount }, () => ({
      isWatched: false, needsKeyframe: true, isBehind: false, dropped: 0,
    }));
  }

  get #isFull() {
    return this.#socket.bufferedAmount > mostWaitingBytes;
  }

  /** Returns true when a branch begins, which takes a keyframe. */
  watch({ branches, sound }) {
    this.#wantsSound = sound;
    let hasBegun = false;
    for (const [index, state] of this.#branches.entries()) {
      const isWatched = branches.includes(index);
      if (isWatched && !state.isWatched) {
        state.needsKeyframe = true;
        state.isBehind = false;
        hasBegun = true;
      }
      state.isWatched = isWatched;
    }
    return hasBegun;
  }

  sendVideo({ branch, isKeyframe }, message) {
    const state = this.#branches[branch];
    if (!state.isWatched) return;
    if (this.#isFull) {
      state.needsKeyframe = true;
      state.isBehind = true;
    } else if (isKeyframe) {
      state.needsKeyframe = false;
      state.isBehind = false;
    }
    if (!state.needsKeyframe) {
      this.#socket.send(message);
    } else if (state.isBehind) {
      state.dropped += 1;
    }
  }

  sendAudio(message) {
    if (this.#wantsSound && !this.#isFull) this.#socket.send(message);
  }

  /** Levels and statistics: a newer one makes up for one left out. */
  sendReport(report) {
    if (!this.#isFull) this.send(report);
  }

  send(object) {
    this.#socket.send(JSON.stringify(object));
  }

  /** Pictures withheld from this page, by branch. */
  get dropped() {
    return this.#branches.map((state) => state.dropped);
  }

  close(code, reason) {
    this.#socket.close(code, reason);
  }
}
