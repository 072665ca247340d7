'use strict';

const { randomBytes, randomUUID } = require('node:crypto');

const mid = 'urn:ietf:params:rtp-hdrext:sdes:mid';
const streamId = 'urn:ietf:params:rtp-hdrext:sdes:rtp-stream-id';
const repairedStreamId =
  'urn:ietf:params:rtp-hdrext:sdes:repaired-rtp-stream-id';
const transportSequence = 'http://www.ietf.org/id/' +
  'draft-holmer-rmcat-transport-wide-cc-extensions-01';

/** The header extensions and their numbers in the offer. */
const extensions = Object.freeze([
  { id: 1, uri: mid },
  { id: 2, uri: streamId, isVideoOnly: true, isForRids: true },
  { id: 3, uri: repairedStreamId, isVideoOnly: true, isForRids: true },
  { id: 4, uri: transportSequence },
]);

const payloadTypes = Object.freeze({ video: 96, repair: 97, audio: 111 });
const mids = Object.freeze({ video: '0', audio: '1' });

// What every receiver has: constrained baseline. The level is that of the
// offer's other side, as the asymmetry says.
const h264Parameters =
  'level-asymmetry-allowed=1;packetization-mode=1;profile-level-id=42e01f';

function extensionLines(isVideo, hasRids) {
  return extensions
    .filter(({ isVideoOnly, isForRids }) =>
      (isVideo || !isVideoOnly) && (hasRids || !isForRids))
    .map(({ id, uri }) => `a=extmap:${id} ${uri}`);
}

function transportLines(local) {
  return [
    'c=IN IP4 0.0.0.0',
    `a=ice-ufrag:${local.user}`,
    `a=ice-pwd:${local.password}`,
    `a=fingerprint:${local.fingerprint}`,
    'a=setup:actpass',
    'a=rtcp-mux',
    'a=sendonly',
  ];
}

const candidateLines = (local) => [
  ...local.candidates.map((line) => `a=${line}`), 'a=end-of-candidates',
];

function videoLines(local, { streams, rids, name, streamName }) {
  const { video, repair } = payloadTypes;
  const lines = [
    `m=video 9 UDP/TLS/RTP/SAVPF ${video} ${repair}`,
    ...transportLines(local),
    `a=mid:${mids.video}`,
    ...extensionLines(true, rids.length > 0),
    `a=msid:${streamName} ${randomUUID()}`,
    `a=rtpmap:${video} H264/90000`,
    `a=fmtp:${video} ${h264Parameters}`,
    ...['nack', 'nack pli', 'ccm fir', 'transport-cc', 'goog-remb']
      .map((feedback) => `a=rtcp-fb:${video} ${feedback}`),
    `a=rtpmap:${repair} rtx/90000`,
    `a=fmtp:${repair} apt=${video}`,
  ];
  if (rids.length > 0) {
    // Streams with names need no numbers: the packets carry the names.
    lines.push(...rids.map((rid) => `a=rid:${rid} send`),
      `a=simulcast:send ${rids.join(';')}`);
  } else {
    const [{ ssrc, repairSsrc }] = streams;
    lines.push(`a=ssrc-group:FID ${ssrc} ${repairSsrc}`,
      `a=ssrc:${ssrc} cname:${name}`, `a=ssrc:${repairSsrc} cname:${name}`);
  }
  return [...lines, ...candidateLines(local)];
}

function audioLines(local, { ssrc, name, streamName }) {
  const { audio } = payloadTypes;
  return [
    `m=audio 9 UDP/TLS/RTP/SAVPF ${audio}`,
    ...transportLines(local),
    `a=mid:${mids.audio}`,
    ...extensionLines(false, false),
    `a=msid:${streamName} ${randomUUID()}`,
    `a=rtpmap:${audio} opus/48000/2`,
    `a=fmtp:${audio} minptime=10;stereo=1;sprop-stereo=1;useinbandfec=1`,
    `a=rtcp-fb:${audio} transport-cc`,
    `a=ssrc:${ssrc} cname:${name}`,
    ...candidateLines(local),
  ];
}

/**
 * The offer of a sender. `local` is { user, password, fingerprint, candidates };
 * `video` { streams: [{ ssrc, repairSsrc }], rids }, with no rids for one
 * stream; `audio` { ssrc } or null; `name` the canonical name of the sender.
 */
function makeOffer({ local, video, audio, name }) {
  const streamName = randomUUID();
  const sessionId = BigInt(`0x${randomBytes(8).toString('hex')}`) >> 1n;
  const bundle = [mids.video, ...audio === null ? [] : [mids.audio]];
  return [
    'v=0',
    `o=- ${sessionId} 1 IN IP4 127.0.0.1`,
    's=-',
    't=0 0',
    `a=group:BUNDLE ${bundle.join(' ')}`,
    `a=msid-semantic: WMS ${streamName}`,
    ...videoLines(local, { ...video, name, streamName }),
    ...audio === null ? []
      : audioLines(local, { ...audio, name, streamName }),
    '',
  ].join('\r\n');
}

module.exports = {
  extensions, makeOffer, mid, mids, payloadTypes, repairedStreamId, streamId,
  transportSequence,
};
