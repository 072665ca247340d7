// The other side of a published capture: takes the offer, answers it, says that
// all of it arrives, and keeps when.
import process from 'node:process';

import publishFrames from '../../lib/publish/frames.js';
import {
  collectText, endHelper, startHelper,
} from '../../tests/support/processes.mjs';
import { program } from './programs.mjs';
import { makeTransportFeedback } from './transport_feedback.mjs';

const { FrameReader, makeFrame } = publishFrames;

const recordSize = 36;
const timeSize = 8;
const sequenceExtension = 4;
const feedbackEveryMs = 100;

const text = (kind, lines) => makeFrame(kind, Buffer.from(lines.join('\n')));

const valueOf = (sdp, key) => new RegExp(`^a=${key}:(.*)$`, 'm')
  .exec(sdp)?.[1].trim();

/** What the program is told of the sender. */
function remoteLines(offer) {
  return [
    `user ${valueOf(offer, 'ice-ufrag')}`,
    `password ${valueOf(offer, 'ice-pwd')}`,
    `fingerprint ${valueOf(offer, 'fingerprint')}`,
    'setup passive',
    ...new Set(offer.match(/(?<=^a=)candidate:[^\r\n]*/gm)),
  ];
}

/** The offer's own media, all taken, with the receiver's way in. */
function makeAnswer(offer, local) {
  const own = [
    `a=ice-ufrag:${local.user}`, `a=ice-pwd:${local.password}`,
    `a=fingerprint:${local.fingerprint}`, 'a=setup:active',
    ...local.candidates.map((line) => `a=${line}`),
  ];
  const replaced = /^a=(ice-|fingerprint|setup|candidate|end-of|ssrc|msid)/;
  return offer.split('\r\n').filter((line) => !replaced.test(line))
    .flatMap((line) => (line === 'a=sendonly' ? ['a=recvonly', ...own]
      : [line.replace(/^(a=rid:\S+|a=simulcast:) ?send/, '$1 recv')]))
    .join('\r\n');
}

/** The number over all streams, from the extensions of a packet's header. */
function transportSequence(header) {
  let at = 16;
  while (at < header.length && header[at] !== 0) {
    const length = (header[at] & 15) + 1;
    if (header[at] >> 4 === sequenceExtension) return header.readUInt16BE(at + 1);
    at += 1 + length;
  }
  return null;
}

function readRecord(record) {
  const header = record.subarray(timeSize);
  return {
    ns: Number(record.readBigInt64LE(0)),
    ssrc: header.readUInt32BE(8),
    sequence: header.readUInt16BE(2),
    transport: transportSequence(header),
  };
}

/** One connection; another needs another receiver. */
export function startReceiver() {
  const child = startHelper(program('bench_receiver'), [],
    { stdio: ['pipe', 'pipe', 'pipe', 'pipe'] });
  const errors = collectText(child.stderr);
  child.stdin.on('error', () => {
    // It has ended, which its exit tells.
  });
  const arrivals = [];
  let untold = [];
  let tellLocal;
  const local = new Promise((resolve) => {
    tellLocal = resolve;
  });
  const reader = new FrameReader((kind, payload) => {
    if (kind === 'l') tellLocal(payload.toString());
  });
  child.stdout.on('data', (bytes) => reader.add(bytes));
  let rest = Buffer.alloc(0);
  child.stdio[3].on('data', (bytes) => {
    rest = Buffer.concat([rest, bytes]);
    for (; rest.length >= recordSize; rest = rest.subarray(recordSize)) {
      const arrival = readRecord(rest.subarray(0, recordSize));
      arrivals.push(arrival);
      if (arrival.transport !== null) untold.push(arrival);
    }
  });
  let round = 0;
  const timer = setInterval(() => {
    if (untold.length === 0) return;
    child.stdin.write(makeFrame('p', makeTransportFeedback(untold, round)));
    untold = [];
    round += 1;
  }, feedbackEveryMs);
  return {
    arrivals,
    async answer(offer) {
      child.stdin.write(text('o', ['loopback']));
      const lines = (await local).split('\n');
      const find = (key) => lines.find((line) => line.startsWith(`${key} `))
        .slice(key.length + 1);
      child.stdin.write(text('r', remoteLines(offer)));
      return makeAnswer(offer, {
        user: find('user'), password: find('password'),
        fingerprint: find('fingerprint'),
        candidates: lines.filter((line) => line.startsWith('candidate:')),
      });
    },
    async stop() {
      clearInterval(timer);
      child.stdin.end();
      await endHelper(child);
      if (errors.text !== '') process.stderr.write(errors.text);
    },
  };
}
