'use strict';

const { AudioFollower } = require('./audio_follower.js');
const { planAudio } = require('./audio_options.js');
const { CaptureError, argumentError, fromNative } = require('./errors.js');

// Of the native function that gives a running capture sound without a target.
const silenceKey = Symbol.for('linux-capture.silence');

// What keeps a target from being recorded now and perhaps not later.
const isPassingRefusal = ({ code }) =>
  code === 'source-paused' || code === 'target-missing';

/** Sound of which nothing plays yet. */
const nothingYet =
  Object.freeze({ linuxAudio: null, kinds: new Map(), isWaiting: true });

/** The sound of a session: what is recorded at the moment, and what next. */
class SessionSound {
  #native;
  #tell;
  #report;
  #plan = null;
  #now = null;
  #isChangeable = false;
  #isHeld = false;
  #follower = null;

  /**
   * `tell` gets the targets that are recorded from now on, `report` what went
   * wrong.
   */
  constructor({ native, tell, report }) {
    this.#native = native;
    this.#tell = tell;
    this.#report = report;
  }

  /** What is recorded, as AudioPlan has it; null for nothing. */
  get now() {
    return this.#now;
  }

  /** Whether what is lost is found anew. */
  get isFollowed() {
    return this.#follower !== null;
  }

  /** What the statistics have beside the native ones. */
  get described() {
    const { kinds } = this.#now ?? nothingYet;
    return { audioMode: this.#plan?.mode, kinds };
  }

  /** Sets out to record what `sound` is, which `plan` has found. */
  prepare(plan, sound) {
    this.#plan = plan;
    this.#now = sound;
    this.#isChangeable = plan?.isChangeable ?? false;
  }

  /** Looks for what is to be recorded once more. */
  async find() {
    return await this.#plan?.find() ?? null;
  }

  /**
   * Starts a native capture by `begin`, which takes the targets; without those
   * that do not play.
   */
  begin(sound, begin) {
    this.#now = sound === null ? null : this.#beginWith(sound, begin);
    if (sound === null) begin(null);
    this.#isHeld = false;
    this.#follow();
  }

  #beginWith(sound, begin) {
    if (sound.linuxAudio !== null) {
      try {
        begin(sound.linuxAudio);
        return sound;
      } catch (error) {
        // It was there, and playing, a moment ago.
        if (!this.#plan.canWait || !isPassingRefusal(error)) throw error;
      }
    }
    begin(null);
    try {
      this.#native.updateAudioTargets[silenceKey]();
    } catch (error) {
      this.#native.stopCapture();
      throw error;
    }
    return nothingYet;
  }

  /** Until the next `begin` there is no capture to change. */
  hold() {
    this.#isHeld = true;
  }

  stop() {
    this.#follower?.stop();
    this.#follower = null;
  }

  /** Records something else; `requireActive` throws when that is too late. */
  async change(audio, requireActive) {
    const plan = planAudio(audio);
    if (plan === null) {
      throw argumentError('a capture cannot go on without its sound');
    }
    if (!this.#isChangeable) {
      throw new CaptureError('ERR_CAPTURE_UNSUPPORTED',
        'only a capture of the sound of applications can change it');
    }
    const sound = await plan.find();
    requireActive();
    this.stop();
    try {
      this.#bind(sound);
      this.#plan = plan;
    } finally {
      // What was followed before is followed again where that failed.
      this.#follow();
    }
  }

  #bind(sound) {
    const { linuxAudio } = sound;
    if (!this.#isHeld) {
      const { updateAudioTargets } = this.#native;
      try {
        if (linuxAudio === null) updateAudioTargets[silenceKey]();
        else updateAudioTargets(linuxAudio);
      } catch (error) {
        this.#keepSound();
        throw fromNative(error, 'ERR_CAPTURE_AUDIO');
      }
    }
    this.#now = sound;
    if (linuxAudio !== null) this.#tell(linuxAudio);
  }

  /** A change that failed has left no sound that could be changed again. */
  #keepSound() {
    this.#now = nothingYet;
    try {
      this.#native.updateAudioTargets[silenceKey]();
    } catch {
      // What keeps it from being silent has just been told.
    }
  }

  #follow() {
    this.stop();
    if (this.#now === null) return;
    const { linuxAudio, isWaiting } = this.#now;
    if (!this.#plan.canWait || !(this.#plan.isFollowed || isWaiting)) return;
    this.#follower = new AudioFollower({
      plan: this.#plan,
      bind: (found) => this.#bind(found),
      report: this.#report,
      bound: linuxAudio?.pipeWireTargetObjects ?? [],
    });
  }
}

module.exports = { SessionSound };
