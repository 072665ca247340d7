// Sends arbitrary bytes and texts to what a publication reads: the reports and
// the answer of a server, and what the programs beside the module write. A
// program of its own, like capture_request_fuzz.mjs, whose report it has.
import { createRequire } from 'node:module';
import process from 'node:process';
import fc from 'fast-check';

const require = createRequire(import.meta.url);
const { FrameReader, makeFrames } = require('../../lib/publish/frames.js');
const { MediaSender } = require('../../lib/publish/media_sender.js');
const { PublishError } = require('../../lib/publish/errors.js');
const { readAnswer } = require('../../lib/publish/sdp_answer.js');
const { readReports } = require('../../lib/publish/rtcp_feedback.js');
const offers = require('../../lib/publish/sdp_offer.js');

const [, , runsText, secondsText, seedText] = process.argv;
const limits = {
  numRuns: Number(runsText),
  interruptAfterTimeLimit: Number(secondsText) * 1000 / 2,
  seed: Number(seedText),
};

// No network carries more in one.
const longestDatagram = 65_507;
const mostReported = 600_000;
const longestQueueBytes = 1 << 20;

const mustHold = (holds, rule) => {
  if (!holds) throw new Error(rule);
};

/** Reports whose heads are right and whose insides may be anything. */
const report = fc.record({
  kind: fc.constantFrom(200, 201, 202, 203, 205, 206, 207),
  count: fc.oneof(fc.constantFrom(1, 4, 15), fc.nat(31)),
  body: fc.uint8Array({ maxLength: 120 }),
  lengthError: fc.oneof({ arbitrary: fc.constant(0), weight: 9 },
    { arbitrary: fc.integer({ min: -3, max: 300 }), weight: 1 }),
}).map(({ kind, count, body, lengthError }) => {
  const words = Math.ceil(body.length / 4);
  const bytes = Buffer.alloc(4 + words * 4);
  bytes[0] = 0x80 | count;
  bytes[1] = kind;
  bytes.writeUInt16BE((words + lengthError) & 0xffff, 2);
  bytes.set(body, 4);
  return bytes;
});

/** The same one many times is the cheapest way to ask for much. */
const datagram = fc.oneof(
  fc.uint8Array({ maxLength: 1500 }).map((bytes) => Buffer.from(bytes)),
  fc.tuple(fc.array(report, { minLength: 1, maxLength: 5 }),
    fc.constantFrom(1, 1, 1, 1000)).map(([reports, times]) =>
    Buffer.concat(new Array(times).fill(Buffer.concat(reports)))
      .subarray(0, longestDatagram)),
);

function readsWell(bytes) {
  const reports = readReports(bytes);
  const told = reports.reduce((sum, { sequences, arrivals, blocks }) => sum +
    (sequences ?? arrivals ?? blocks ?? []).length, 0);
  mustHold(told <= mostReported, 'a datagram does not fill the memory');
  for (const { type, sequences, blocks, bitsPerSecond } of reports) {
    for (const sequence of sequences ?? []) {
      mustHold(sequence >= 0 && sequence <= 0xffff, 'numbers are of 16 bits');
    }
    for (const { fractionLost } of blocks ?? []) {
      mustHold(fractionLost >= 0 && fractionLost < 1, 'a share is one');
    }
    mustHold(type !== 'bitrate' || Number.isFinite(bitsPerSecond),
      'a bitrate is a number');
  }
}

const answer = {
  video: { payloadType: 96, repairPayloadType: 97, rids: [],
    extensions: new Map([[offers.transportSequence, 4]]) },
  audio: { payloadType: 111, extensions: new Map() },
};

/** What a sender does with the reports on its first picture. */
function staysSmall(datagrams) {
  let sentBytes = 0;
  let first = null;
  const sender = new MediaSender({
    answer, rids: [], layers: 1, bitsPerSecond: 1e6,
    numbers: { streams: [{ ssrc: 7, repairSsrc: 8 }], audio: 9, name: 'name' },
    nowUs: () => performance.now() * 1000,
    send: (packet) => {
      sentBytes += packet.length;
      first ??= packet.readUInt16BE(2);
    },
    requestKeyframe: () => {},
  });
  try {
    sender.takePicture({ branch: 0, isKeyframe: true, temporalId: 0,
      timestampUs: 0, data: Buffer.concat(
        [Buffer.from([0, 0, 1, 0x65]), Buffer.alloc(50_000, 0xab)]) });
    for (const make of datagrams) sender.takeReports(make(first));
    const { waitingMs, loss, roundTripMs } = sender.stats();
    // The pace is 10 Mbit/s and more.
    mustHold(waitingMs * 1250 <= longestQueueBytes,
      'what is asked for again does not pile up');
    mustHold(sentBytes < longestQueueBytes, 'a request is no amplifier');
    mustHold(loss === null || (loss >= 0 && loss <= 1), 'a loss is a share');
    mustHold(roundTripMs === null || roundTripMs >= 0, 'time runs on');
  } finally {
    sender.stop();
  }
}

/** Requests for lost packets around the first one that was sent. */
const requests = fc.tuple(fc.integer({ min: -20, max: 60 }), fc.nat(60),
  fc.constantFrom(0, 1, 17), fc.constantFrom(1, 1, 200)).map(
  ([offset, count, step, times]) => (first) => {
    const bytes = Buffer.alloc(12 + count * 4);
    bytes.set([0x81, 205, 0, 2 + count, 0, 0, 0, 1, 0, 0, 0, 7]);
    for (let index = 0; index < count; index += 1) {
      const at = 12 + index * 4;
      bytes.writeUInt16BE((first + offset + step * index) & 0xffff, at);
      bytes.writeUInt16BE(0xffff, at + 2);
    }
    return Buffer.concat(new Array(times).fill(bytes))
      .subarray(0, longestDatagram);
  });

const answerLines = [
  'v=0', 'o=- 1 1 IN IP4 0.0.0.0', 's=-', 't=0 0', 'a=group:BUNDLE 0 1',
  'a=ice-lite', 'm=video 9 UDP/TLS/RTP/SAVPF 96 97', 'a=mid:0', 'a=recvonly',
  'a=ice-ufrag:abcd', 'a=ice-pwd:abcdefghijklmnopqrstuv',
  'a=fingerprint:sha-256 12:34', 'a=setup:passive', 'a=rtpmap:96 H264/90000',
  'a=fmtp:96 packetization-mode=1;profile-level-id=42e01f',
  'a=rtpmap:97 rtx/90000', 'a=fmtp:97 apt=96', `a=extmap:1 ${offers.mid}`,
  `a=extmap:2 ${offers.streamId}`, `a=extmap:4 ${offers.transportSequence}`,
  'a=rid:h recv', 'a=rid:m recv', 'a=simulcast:recv h;m',
  'a=candidate:1 1 udp 1 127.0.0.1 50000 typ host',
  'm=audio 9 UDP/TLS/RTP/SAVPF 111', 'a=mid:1', 'a=recvonly',
  'a=rtpmap:111 opus/48000/2',
];

const line = fc.oneof(
  fc.constantFrom(...answerLines),
  fc.tuple(fc.constantFrom(...answerLines), fc.nat(80), fc.nat(4),
    fc.string({ unit: 'binary', maxLength: 12 }))
    .map(([text, at, count, put]) =>
      text.slice(0, at) + put + text.slice(at + count)),
  fc.string({ unit: 'binary', maxLength: 200 }),
);

/** A right answer with some lines replaced, one of them perhaps many times. */
const answerText = fc.tuple(
  fc.array(fc.tuple(fc.nat(answerLines.length), fc.nat(2), line),
    { maxLength: 4 }),
  fc.constantFrom(1, 1, 1, 1, 10_000), fc.constantFrom('\r\n', '\n', '\r'),
).map(([changes, times, end]) => {
  const lines = [...answerLines];
  changes.forEach(([at, count, text], index) => lines.splice(at, count,
    ...new Array(index === 0 ? times : 1).fill(text)));
  return lines.join(end);
});

function answersWell(text) {
  let read;
  try {
    read = readAnswer(text,
      { extensions: offers.extensions, rids: ['h', 'm', 'l'], hasAudio: true });
  } catch (error) {
    mustHold(error instanceof PublishError &&
      error.code === 'ERR_PUBLISH_ANSWER', `threw ${error.stack}`);
    mustHold(error.message.length < 500, 'a refusal is short');
    return;
  }
  const { transport, video, audio } = read;
  for (const value of [transport.user, transport.password,
    transport.fingerprint, ...transport.candidates]) {
    mustHold(!/[\r\n]/.test(value), 'no value can be more than one line');
  }
  mustHold(transport.candidates.length > 0, 'there is a way');
  for (const number of [video.payloadType,
    ...video.repairPayloadType === null ? [] : [video.repairPayloadType],
    ...audio === null ? [] : [audio.payloadType]]) {
    mustHold(Number.isInteger(number) && number >= 0 && number <= 127,
      'a payload has a number of seven bits');
  }
  for (const [uri, id] of [...video.extensions, ...audio?.extensions ?? []]) {
    mustHold(offers.extensions.some((each) =>
      each.uri === uri && each.id === id), 'no extension is new');
  }
  mustHold(video.rids.every((rid) => ['h', 'm', 'l'].includes(rid)) &&
    new Set(video.rids).size === video.rids.length, 'no stream is new');
}

const written = fc.oneof(
  fc.uint8Array({ maxLength: 300 }).map((bytes) => Buffer.from(bytes)),
  fc.array(fc.uint8Array({ maxLength: 300 }), { maxLength: 8 })
    .map((payloads) => makeFrames('p', payloads)),
);

function readInPieces(bytes, size) {
  const got = [];
  const reader = new FrameReader((kind, payload) =>
    got.push(kind, payload.toString('latin1')));
  try {
    for (let at = 0; at < bytes.length; at += size) {
      reader.add(bytes.subarray(at, at + size));
    }
  } catch (error) {
    got.push(error.message);
  }
  return got.join('\n');
}

function framesAreTheSame([bytes, size]) {
  mustHold(readInPieces(bytes, size) === readInPieces(bytes, bytes.length + 1),
    'frames are the same, whatever pieces they come in');
}

function check(arbitrary, act) {
  const result = fc.check(fc.property(arbitrary, (value) => {
    act(value);
  }), limits);
  return {
    failed: result.failed && result.counterexample !== null,
    runs: result.numRuns,
    seed: result.seed,
    path: result.counterexamplePath,
    error: result.errorInstance?.stack ?? null,
  };
}

console.log(JSON.stringify({
  reports: check(datagram, readsWell),
  sender: check(fc.array(fc.oneof(datagram.map((bytes) => () => bytes),
    requests), { maxLength: 4 }), staysSmall),
  answers: check(answerText, answersWell),
  frames: check(fc.tuple(written, fc.integer({ min: 1, max: 40 })),
    framesAreTheSame),
}));
