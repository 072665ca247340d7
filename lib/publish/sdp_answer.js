'use strict';

// The answer of a server. It is foreign text: what is not understood is passed
// over, and what is needed and missing is said.

const net = require('node:net');

const { PublishError } = require('./errors.js');

const longestAnswer = 262_144;
const mostCandidates = 64;
// RFC 8839 has 256 for names and passwords of ICE; candidates and fingerprints
// are shorter. The program that takes them has a limit of its own.
const longestWord = 256;

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

/**
 * What is said of each payload, by its number: the first of several. Read once,
 * since an answer can have many thousand lines.
 */
function byPayload(section, key) {
  const values = new Map();
  for (const value of valuesOf(section, key)) {
    const found = /^(\d{1,3}) (.*)$/.exec(value);
    const number = Number(found?.[1] ?? Number.NaN);
    if (number <= 127 && !values.has(number)) values.set(number, found[2]);
  }
  return values;
}

/** The number of a payload with this name, where parameters allow it. */
function payloadOf(section, name, isAllowed = () => true) {
  const parameters = byPayload(section, 'fmtp');
  const found = [...byPayload(section, 'rtpmap')].find(([number, map]) =>
    /^([^/]+)\/\d/.exec(map)?.[1].toLowerCase() === name &&
    section.payloadTypes.includes(number) &&
    isAllowed(parameters.get(number) ?? ''));
  return found?.[0] ?? null;
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

/** A way by UDP to an address; names, as of multicast DNS, lead nowhere. */
function isUsableCandidate(value) {
  const [, , transport = '', , address = ''] = value.split(' ', 5);
  return value.length <= longestWord && transport.toLowerCase() === 'udp' &&
    net.isIP(address) !== 0;
}

function readTransport(sections, whole) {
  const inOrder = [...sections, whole];
  const description = {
    user: firstOf(inOrder, 'ice-ufrag'),
    password: firstOf(inOrder, 'ice-pwd'),
    // One of several may be of a kind that nobody here knows.
    fingerprint: inOrder.flatMap((section) =>
      valuesOf(section, 'fingerprint')).find((value) =>
      value.length <= longestWord &&
      /^sha-(256|384|512) [0-9a-f:]+$/i.test(value)),
    setup: firstOf(inOrder, 'setup') === 'active' ? 'active' : 'passive',
    candidates: [...new Set(inOrder.flatMap((section) =>
      valuesOf(section, 'candidate').filter(isUsableCandidate)))]
      .slice(0, mostCandidates).map((value) => `candidate:${value}`),
  };
  const isWord = (text) => /^[\w+/=-]+$/.test(text ?? '') &&
    text.length <= longestWord;
  if (!isWord(description.user) || !isWord(description.password)) {
    throw refuse('has no user and password of ICE');
  }
  if (description.fingerprint === undefined) {
    throw refuse('has no fingerprint of a certificate');
  }
  if (description.candidates.length === 0) {
    throw refuse('names no address that can be used (candidates that come ' +
      'later are not waited for)');
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
  if (!isTaken(video)) {
    throw refuse('takes no pictures; the server must be set to allow H.264');
  }
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
