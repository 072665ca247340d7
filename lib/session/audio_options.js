'use strict';

const { quoted } = require('../visible_text.js');
const { argumentError } = require('./errors.js');
const { AudioPlan } = require('./audio_plan.js');
const { applicationSource, microphoneSource, systemSource } =
  require('./audio_sources.js');
const { requireExactlyOne, requireInteger, requireObject, requireText } =
  require('./options.js');

// Of these there can be one.
const selectors =
  ['system', 'processId', 'application', 'processBinary', 'linuxAudio'];

const silence = (value) =>
  value === undefined || value === null || value === false;

function requireSwitch(value, name) {
  if (value !== undefined && typeof value !== 'boolean') {
    throw argumentError(`${name} must be true or false`);
  }
}

/** The microphone: null for none, "" for the default one, else its name. */
function microphoneOf({ microphone }) {
  if (silence(microphone)) return null;
  return microphone === true ? '' : requireText(microphone, 'audio.microphone');
}

function selectedSource(key, value) {
  if (key === 'system') return systemSource();
  if (key === 'processId') requireInteger(value, 'audio.processId', 1);
  else requireText(value, `audio.${key}`);
  return applicationSource(key, value, key === 'processId'
    ? `process ${value}` : `application ${quoted(value)}`);
}

/** Exactly these objects of PipeWire. */
function givenPlan(linuxAudio, { microphone }) {
  if (linuxAudio === null || typeof linuxAudio !== 'object') {
    throw argumentError('audio.linuxAudio must be an object');
  }
  if (!silence(microphone)) {
    throw argumentError('audio.linuxAudio names the microphone itself');
  }
  return new AudioPlan({ sources: [], linuxAudio, isFollowed: false });
}

/** Checks the option `audio`. Returns null for silence, else an AudioPlan. */
function planAudio(audio) {
  if (silence(audio)) return null;
  if (audio === 'system') return planAudio({ system: true });
  requireObject(audio, 'audio', [...selectors, 'microphone', 'follow']);
  for (const name of ['system', 'follow']) {
    requireSwitch(audio[name], `audio.${name}`);
  }
  const microphone = microphoneOf(audio);
  const wanted = { ...audio, system: audio.system || undefined };
  const isAlone = microphone !== null &&
    selectors.every((name) => wanted[name] === undefined);
  const key = isAlone ? null : requireExactlyOne(wanted, 'audio', selectors);
  if (key === 'linuxAudio') return givenPlan(audio.linuxAudio, audio);
  return new AudioPlan({
    sources: [
      ...key === null ? [] : [selectedSource(key, audio[key])],
      ...microphone === null ? [] : [microphoneSource(microphone)],
    ],
    isFollowed: audio.follow ?? true,
  });
}

/** The parts of the capture request for these targets. */
function audioRequest(linuxAudio) {
  return linuxAudio === null ? { audio: { mode: 'none' } }
    : { audio: { mode: linuxAudio.mode }, linuxAudio };
}

module.exports = { audioRequest, planAudio };
