'use strict';

const { planAudio } = require('./audio_options.js');
const { CaptureSession } = require('./capture_session.js');
const { CaptureError, fromNative } = require('./errors.js');
const { loadNative } = require('./native.js');
const { checkSignal, requireObject } = require('./options.js');
const { openSource } = require('./source.js');
const { checkVideo, planVideo } = require('./video_options.js');

// The native module captures once in a process; a start under way counts too,
// also that of another thread, which has variables of its own: the native module
// keeps the claim for all of them.
const claimKey = Symbol.for('linux-capture.session-claim');

const giveBack = (native) => { native.captureSetup[claimKey](false); };

function take(native) {
  if (native.isCapturing() || !native.captureSetup[claimKey](true)) {
    throw new CaptureError('ERR_CAPTURE_ACTIVE',
      'a capture is running in this process, and there can be only one: ' +
        'stop it first');
  }
}

async function open(options, { native, signal }) {
  const audioPlan = planAudio(options.audio);
  checkVideo(options.video);
  const source = await openSource(options.source, { native, signal });
  const release = async () => {
    await source.release();
    giveBack(native);
  };
  try {
    const { capture, keyframeSeconds } = planVideo(options.video, source.size);
    const sound = audioPlan === null ? null : await audioPlan.find(signal);
    checkSignal(signal);
    const session = new CaptureSession({ native, source, release });
    session.start({
      capture,
      keyframeSeconds,
      audioPlan,
      sound,
    });
    source.opened();
    return session;
  } catch (error) {
    await source.release();
    throw fromNative(error);
  }
}

/** Starts a capture and resolves with its session. */
async function startCapture(options) {
  requireObject(options, 'options', ['source', 'video', 'audio', 'signal']);
  const { signal } = options;
  checkSignal(signal);
  const native = loadNative();
  take(native);
  try {
    const session = await open(options, { native, signal });
    const abort = () => session.abort();
    signal?.addEventListener('abort', abort, { once: true });
    session.ended.then(() => signal?.removeEventListener('abort', abort));
    return session;
  } catch (error) {
    giveBack(native);
    throw error;
  }
}

module.exports = { startCapture };
