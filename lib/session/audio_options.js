'use strict';

const { quoted } = require('../visible_text.js');
const { argumentError, notFound } = require('./errors.js');
const { requireExactlyOne, requireInteger, requireObject, requireText } =
  require('./options.js');
const { listApplications, listSinks } = require('./targets.js');

const selectors = ['processId', 'application', 'processBinary', 'linuxAudio'];

/**
 * Checks the option `audio`. Returns null for silence, else the way to find
 * the targets: `find()` resolves with the `linuxAudio` part of the request, or
 * tells what there is when nothing of the kind plays; `isFollowed` says that
 * what is found can change, and `choose` then finds it in a list of
 * applications.
 */
function planAudio(audio) {
  if (audio === undefined || audio === null || audio === false) return null;
  if (audio === 'system') {
    return { find: findDefaultSink, isFollowed: false };
  }
  requireObject(audio, 'audio', [...selectors, 'follow']);
  const key = requireExactlyOne(audio, 'audio', selectors);
  const value = audio[key];
  if (audio.follow !== undefined && typeof audio.follow !== 'boolean') {
    throw argumentError('audio.follow must be true or false');
  }
  if (key === 'linuxAudio') {
    if (value === null || typeof value !== 'object') {
      throw argumentError('audio.linuxAudio must be an object');
    }
    return { find: async () => value, isFollowed: false };
  }
  if (key === 'processId') requireInteger(value, 'audio.processId', 1);
  else requireText(value, `audio.${key}`);
  const choose = (applications) => chooseFrom(applications, key, value);
  const what = key === 'processId' ? `process ${value}`
    : `application ${quoted(value)}`;
  return {
    find: async (signal) => {
      const applications = await listApplications(signal);
      return choose(applications) ?? refuseUnknown(what, applications);
    },
    choose,
    isFollowed: audio.follow ?? true,
  };
}

function refuseUnknown(what, applications) {
  throw notFound(`${what} with sound`, applications.map(
    ({ applicationName, processBinary, processId }) =>
      `${quoted(applicationName ?? processBinary ?? '?')} (process ${
        processId ?? '?'})`));
}

async function findDefaultSink(signal) {
  const sinks = await listSinks(signal);
  const sink = sinks.find(({ isDefault }) => isDefault) ?? sinks[0];
  if (sink === undefined) throw notFound('output of sound', []);
  return withNames(sink);
}

/** What an output records, with the names by which statistics tell it. */
function withNames({ linuxAudio, name, description }) {
  return {
    ...linuxAudio,
    pipeWireAudioSources: linuxAudio.pipeWireTargetObjects.map((target) => ({
      pipeWireTargetObject: target,
      nodeName: name,
      mediaName: description ?? '',
    })),
  };
}

const same = (a, b) =>
  typeof a === 'string' && a.toLowerCase() === b.toLowerCase();

/** All streams of all processes that match, as one set of targets. */
function chooseFrom(applications, key, value) {
  const chosen = applications.filter((entry) => {
    switch (key) {
      case 'processId':
        return entry.processId === value;
      case 'processBinary':
        return entry.processBinary === value;
      default:
        return same(entry.applicationName, value) ||
          same(entry.processBinary, value);
    }
  });
  if (chosen.length === 0) return null;
  const lists = chosen.map(({ linuxAudio }) => linuxAudio);
  return {
    mode: 'process',
    pipeWireTargetObjects:
      lists.flatMap(({ pipeWireTargetObjects }) => pipeWireTargetObjects),
    pipeWireAudioSources:
      lists.flatMap(({ pipeWireAudioSources }) => pipeWireAudioSources ?? []),
  };
}

/** The parts of the capture request for these targets. */
function audioRequest(linuxAudio) {
  return linuxAudio === null ? { audio: { mode: 'none' } }
    : { audio: { mode: linuxAudio.mode }, linuxAudio };
}

module.exports = { audioRequest, planAudio };
