'use strict';

// The answer of a server. It is foreign text: what is not understood is passed
// over, and what is needed and missing is said.

const { PublishError } = require('./errors.js');

const longestAnswer = 262_144;
const mostCandidates = 64;

const refuse = (what) =>
  new PublishError('ERR_PUBLISH_ANSWER', `the server's answer ${what}`);

/** The part before the first medium, and one for each medium. */
function splitSections(text) {
  const sections = [{ media: null, lines: [] }];
  for (const line of text.split(/\r\n|\r|\n/)) {
    const media = /^m=(\S+) (\d+) \S+ ?(.*)$/.exec(line);
    if (media !== null) {
      sections.push({
        media: media[1],
        port: Number(media[2]),
        payloadTypes: media[3].split(' ').map(Number),
        lines: [],
      });
    } else {
      sections.at(-1).lines.push(line);
    }
  }
  return sections;
}

const valuesOf = ({ lines }, key) => lines
  .filter((line) => line.startsWith(`a=${key}:`))
  .map((line) => line.slice(key.length + 3).trim());

const hasFlag = ({ lines }, flag) => lines.includes(`a=${flag}`);

/** Of the medium itself, or of the whole session. */
const firstOf = (sections, key) =>
  sections.flatMap((section) => valuesOf(section, key))[0];

/** The number of a payload with this name, where parameters allow it. */
function payloadOf(section, name, isAllowed = () => true) {
  for (const map of valuesOf(section, 'rtpmap')) {
    const found = /^(\d{1,3}) ([^/]+)\/\d+/.exec(map);
    if (found === null || found[2].toLowerCase() !== name) continue;
    const number = Number(found[1]);
    if (number > 127 || !section.payloadTypes.includes(number)) continue;
    const parameters = valuesOf(section, 'fmtp')
      .find((value) => value.startsWith(`${number} `)) ?? '';
    if (isAllowed(parameters.slice(`${number} `.length))) return number;
  }
  return null;
}

function keptExtensions(section, offered) {
  const kept = new Map();
  for (const value of valuesOf(section, 'extmap')) {
    const found = /^(\d+)(?:\/\w+)? (\S+)/.exec(value);
    const isOurs = found !== null && offered.some(({ id, uri }) =>
      id === Number(found[1]) && uri === found[2]);
    if (isOurs) kept.set(found[2], Number(found[1]));
  }
  return kept;
}

/** The names of the streams that are wanted, in the order of the offer. */
function keptRids(section, offeredRids) {
  const list = firstOf([section], 'simulcast');
  const received = /(?:^|\s)recv (\S+)/.exec(list ?? '')?.[1];
  if (received === undefined) return [];
  const names = received.split(/[;,]/);
  return offeredRids.filter((rid) => names.includes(rid));
}

function readVideo(section, offer) {
  const payloadType = payloadOf(section, 'h264', (parameters) =>
    /(?:^|;)\s*packetization-mode=1\b/.test(parameters));
  if (payloadType === null) {
    throw refuse('has no H.264 as it was offered (packetization mode 1); the ' +
      'server must be set to allow H.264');
  }
  const repairPayloadType = payloadOf(section, 'rtx', (parameters) =>
    new RegExp(`(?:^|;)\\s*apt=${payloadType}\\b`).test(parameters));
  return {
    payloadType,
    repairPayloadType,
    extensions: keptExtensions(section, offer.extensions),
    rids: keptRids(section, offer.rids),
  };
}

function isTaken(section) {
  return section !== undefined && section.port !== 0 &&
    !hasFlag(section, 'inactive') && !hasFlag(section, 'sendonly');
}

function readTransport(sections, whole) {
  const inOrder = [...sections, whole];
  const fingerprint = firstOf(inOrder, 'fingerprint');
  const description = {
    user: firstOf(inOrder, 'ice-ufrag'),
    password: firstOf(inOrder, 'ice-pwd'),
    fingerprint: /^\S+ [0-9a-fA-F:]+$/.test(fingerprint ?? '')
      ? fingerprint : undefined,
    setup: firstOf(inOrder, 'setup') === 'active' ? 'active' : 'passive',
    candidates: [...new Set(inOrder.flatMap((section) =>
      valuesOf(section, 'candidate')))].slice(0, mostCandidates)
      .map((value) => `candidate:${value}`),
  };
  const isWord = (text) => /^[\w+/=-]+$/.test(text ?? '');
  if (!isWord(description.user) || !isWord(description.password)) {
    throw refuse('has no user and password of ICE');
  }
  if (description.fingerprint === undefined) {
    throw refuse('has no fingerprint of a certificate');
  }
  if (description.candidates.length === 0) {
    throw refuse('names no address (candidates that come later are not ' +
      'waited for)');
  }
  return description;
}

/**
 * What an answer says to an offer, as { transport, video, audio }; audio is null
 * where it was not offered or not taken.
 */
function readAnswer(text, { extensions, rids, hasAudio }) {
  if (text.length > longestAnswer || !text.startsWith('v=0')) {
    throw refuse('is no session description');
  }
  const [whole, ...sections] = splitSections(text);
  const video = sections.find(({ media }) => media === 'video');
  if (!isTaken(video)) throw refuse('takes no pictures');
  const audio = sections.find(({ media }) => media === 'audio');
  const audioPayload = hasAudio && isTaken(audio)
    ? payloadOf(audio, 'opus') : null;
  return {
    transport: readTransport(
      [video, ...audio === undefined ? [] : [audio]], whole),
    video: readVideo(video, { extensions, rids }),
    audio: audioPayload === null ? null : {
      payloadType: audioPayload,
      extensions: keptExtensions(audio, extensions),
    },
  };
}

module.exports = { readAnswer };
