'use strict';

const { listSound } = require('./targets.js');

/**
 * What is recorded at the moment: `linuxAudio` is the part of the request, or
 * null while nothing plays; `kinds` has the kind of sound of each target;
 * `isWaiting` says that something is left out because it is paused.
 */
function resultOf(entries) {
  const playing = entries.filter(({ isPaused }) => !isPaused);
  return {
    linuxAudio: playing.length === 0 ? null : {
      // In the other mode the targets could not be changed.
      mode: 'process',
      pipeWireTargetObjects: playing.map(({ target }) => target),
      pipeWireAudioSources: playing.map(({ source }) => source),
    },
    kinds: new Map(playing.map(({ target, kind }) => [target, kind])),
    isWaiting: playing.length < entries.length,
  };
}

/** Which sound is recorded, and how it is found. */
class AudioPlan {
  #sources;
  #given;
  // The targets that were there at the start, where no others are wanted.
  #known = null;

  constructor({ sources, linuxAudio = null, isFollowed }) {
    this.#sources = sources;
    this.#given = linuxAudio;
    this.isFollowed = isFollowed;
  }

  /** As the session's statistics tell it. */
  get mode() {
    if (this.#given !== null) return this.#given.mode;
    return this.#has('system') ? 'system' : 'process';
  }

  /** Whether what is missing can be found later. */
  get canWait() {
    return this.#given === null;
  }

  /** Whether other sound may take its place while the capture runs. */
  get isChangeable() {
    return this.#given !== null ? this.#given.mode === 'process'
      : this.#sources.length > 1 || !this.#has('system');
  }

  /** Resolves with what to record, or tells what there is instead. */
  async find(signal) {
    if (this.#given !== null) {
      return { linuxAudio: this.#given, kinds: new Map(), isWaiting: false };
    }
    const targets = await listSound(signal);
    const entries = this.#entriesOf(targets, new Set());
    for (const { kind, refuse } of this.#sources) {
      if (!entries.some((entry) => entry.kind === kind)) refuse(targets);
    }
    if (!this.isFollowed) {
      this.#known = new Set(entries.map(({ target }) => target));
    }
    return resultOf(entries);
  }

  /** What to record now, where `bound` are the targets so far. */
  choose(targets, bound) {
    return resultOf(this.#entriesOf(targets, bound)
      .filter(({ target }) => this.#known?.has(target) ?? true));
  }

  #has(wanted) {
    return this.#sources.some(({ kind }) => kind === wanted);
  }

  #entriesOf(targets, bound) {
    return this.#sources.flatMap(({ kind, choose }) =>
      choose(targets, bound).map((entry) => ({ ...entry, kind })));
  }
}

module.exports = { AudioPlan };
