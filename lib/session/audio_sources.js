'use strict';

const { quoted } = require('../visible_text.js');
const { notFound } = require('./errors.js');

/**
 * A kind of sound that is recorded: `choose(targets, bound)` finds what it is
 * at the moment, as a list of { target, source, isPaused }, where `source` is
 * what the request says of the target and `bound` the set of those recorded so
 * far; `refuse(targets)` throws an error that tells what there is instead.
 */

const same = (a, b) =>
  typeof a === 'string' && a.toLowerCase() === b.toLowerCase();

/** What a device records, with the names by which statistics tell it. */
function fromDevice({ linuxAudio, name, description }) {
  return linuxAudio.pipeWireTargetObjects.map((target) => ({
    target,
    isPaused: false,
    source: {
      pipeWireTargetObject: target,
      nodeName: name,
      mediaName: description ?? '',
    },
  }));
}

/**
 * The default one. Where there is none for a moment, because devices come and
 * go, the one so far stays.
 */
function defaultOf(devices, bound) {
  const isBound = ({ linuxAudio }) => linuxAudio.pipeWireTargetObjects
    .some((target) => bound.has(target));
  return devices.find(({ isDefault }) => isDefault) ??
    devices.find(isBound) ?? devices[0];
}

const textOf = ({ name, description }) => description
  ? `${quoted(name)} (${quoted(description)})` : quoted(name);

/** What is heard at the default output. */
const systemSource = () => ({
  kind: 'system',
  choose({ system }, bound) {
    const sink = defaultOf(system, bound);
    return sink === undefined ? [] : fromDevice(sink);
  },
  refuse() {
    throw notFound('output of sound', []);
  },
});

/** The input of this name or description; the default one for "". */
const microphoneSource = (wanted) => ({
  kind: 'microphone',
  choose({ inputs }, bound) {
    const input = wanted === '' ? defaultOf(inputs, bound)
      : inputs.find(({ name }) => name === wanted) ??
        inputs.find(({ name, description }) =>
          same(name, wanted) || same(description, wanted));
    return input === undefined ? [] : fromDevice(input);
  },
  refuse({ inputs }) {
    throw notFound(wanted === '' ? 'microphone'
      : `microphone ${quoted(wanted)}`, inputs.map(textOf));
  },
});

function isOf(application, key, value) {
  switch (key) {
    case 'processId':
      return application.processId === value;
    case 'processBinary':
      return application.processBinary === value;
    default:
      return same(application.applicationName, value) ||
        same(application.processBinary, value);
  }
}

/** All streams of all processes that match. */
const applicationSource = (key, value, what) => ({
  kind: 'application',
  choose({ applications }) {
    return applications.filter((entry) => isOf(entry, key, value))
      .flatMap(({ linuxAudio, pausedTargetObjects }) =>
        linuxAudio.pipeWireTargetObjects.map((target, index) => ({
          target,
          isPaused: pausedTargetObjects.includes(target),
          source: linuxAudio.pipeWireAudioSources[index],
        })));
  },
  refuse({ applications }) {
    throw notFound(`${what} with sound`, applications.map(
      ({ applicationName, processBinary, processId }) =>
        `${quoted(applicationName ?? processBinary ?? '?')} (process ${
          processId ?? '?'})`));
  },
});

module.exports = { applicationSource, microphoneSource, systemSource };
