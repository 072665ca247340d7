import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import answers from '../../lib/publish/sdp_answer.js';
import offers from '../../lib/publish/sdp_offer.js';

const rids = ['h', 'm', 'l'];
const local = {
  user: 'user',
  password: 'a password that nobody knows'.replaceAll(' ', ''),
  fingerprint: 'sha-256 AB:CD',
  candidates: ['candidate:1 1 udp 2013266431 127.0.0.1 40000 typ host'],
};

const offer = (names) => offers.makeOffer({
  local,
  video: {
    streams: (names.length === 0 ? ['one'] : names).map((_, index) =>
      ({ ssrc: 10 + index, repairSsrc: 20 + index })),
    rids: names,
  },
  audio: { ssrc: 30 },
  name: 'name',
});

const answerLines = [
  'v=0', 'o=- 1 1 IN IP4 0.0.0.0', 's=-', 't=0 0', 'a=group:BUNDLE 0 1',
  'a=ice-lite',
  'm=video 9 UDP/TLS/RTP/SAVPF 96 97', 'a=mid:0', 'a=recvonly',
  'a=ice-ufrag:abcd', 'a=ice-pwd:abcdefghijklmnopqrstuv',
  'a=fingerprint:sha-256 12:34', 'a=setup:passive',
  'a=rtpmap:96 H264/90000',
  'a=fmtp:96 packetization-mode=1;profile-level-id=42e01f',
  'a=rtpmap:97 rtx/90000', 'a=fmtp:97 apt=96',
  `a=extmap:1 ${offers.mid}`, `a=extmap:2 ${offers.streamId}`,
  'a=rid:h recv', 'a=rid:m recv', 'a=simulcast:recv h;m',
  'a=candidate:1 1 udp 1 127.0.0.1 50000 typ host',
  'm=audio 9 UDP/TLS/RTP/SAVPF 111', 'a=mid:1', 'a=recvonly',
  'a=rtpmap:111 opus/48000/2',
];

const read = (lines, options = {}) => answers.readAnswer(lines.join('\r\n'),
  { extensions: offers.extensions, rids, hasAudio: true, ...options });
const without = (start) =>
  answerLines.filter((line) => !line.startsWith(start));
const replaced = (start, line) =>
  answerLines.map((each) => (each.startsWith(start) ? line : each));

describe('an offer', () => {
  test('names simulcast streams in their order, without numbers', () => {
    const text = offer(rids);
    assert.match(text, /^a=simulcast:send h;m;l\r$/m);
    const video = text.slice(text.indexOf('m=video'), text.indexOf('m=audio'));
    assert.doesNotMatch(video, /^a=ssrc/m);
  });

  test('numbers one stream with its retransmissions', () => {
    assert.match(offer([]), /^a=ssrc-group:FID 10 20\r$/m);
    assert.doesNotMatch(offer([]), /simulcast|rid/);
  });

  test('only sends, on one way for all', () => {
    assert.equal(offer([]).match(/^a=sendonly\r$/mg).length, 2);
    assert.match(offer([]), /^a=group:BUNDLE 0 1\r$/m);
    assert.ok(offer([]).split('\r\n').every((line) => line.length < 200));
  });
});

describe('an answer', () => {
  test('tells what is taken, and how', () => {
    const { transport, video, audio } = read(answerLines);
    assert.deepEqual(transport, {
      user: 'abcd',
      password: 'abcdefghijklmnopqrstuv',
      fingerprint: 'sha-256 12:34',
      setup: 'passive',
      candidates: ['candidate:1 1 udp 1 127.0.0.1 50000 typ host'],
    });
    assert.equal(video.payloadType, 96);
    assert.equal(video.repairPayloadType, 97);
    assert.deepEqual(video.rids, ['h', 'm']);
    assert.deepEqual([...video.extensions],
      [[offers.mid, 1], [offers.streamId, 2]]);
    assert.equal(audio.payloadType, 111);
  });

  test('may number the payloads anew', () => {
    const lines = answerLines.map((line) => line.replaceAll('96', '120'));
    assert.equal(read(lines).video.payloadType, 120);
    assert.equal(read(lines).video.repairPayloadType, 97);
  });

  test('without retransmissions, simulcast or sound is followed', () => {
    assert.equal(read(without('a=fmtp:97')).video.repairPayloadType, null);
    assert.deepEqual(read(without('a=simulcast')).video.rids, []);
    assert.equal(
      read(replaced('m=audio', 'm=audio 0 UDP/TLS/RTP/SAVPF 111')).audio, null);
    assert.equal(read(answerLines, { hasAudio: false }).audio, null);
  });

  test('with other numbers for extensions has none of ours', () => {
    const lines = replaced('a=extmap:2', `a=extmap:9 ${offers.streamId}`);
    assert.deepEqual([...read(lines).video.extensions], [[offers.mid, 1]]);
  });

  for (const [what, lines, message] of [
    ['that is no description', ['<html>'], /is no session description/],
    ['of nothing', [''], /is no session description/],
    ['without H.264', replaced('a=rtpmap:96', 'a=rtpmap:96 VP8/90000'),
      /has no H\.264/],
    ['with H.264 of another mode',
      replaced('a=fmtp:96', 'a=fmtp:96 packetization-mode=0'), /has no H\.264/],
    ['that refuses the pictures',
      replaced('m=video', 'm=video 0 UDP/TLS/RTP/SAVPF 96 97'),
      /takes no pictures/],
    ['without pictures', answerLines.slice(0, 6), /takes no pictures/],
    ['without a fingerprint', without('a=fingerprint'), /no fingerprint/],
    ['with a strange fingerprint',
      replaced('a=fingerprint', 'a=fingerprint:sha-256 xyz\tq'),
      /no fingerprint/],
    ['without a password', without('a=ice-pwd'), /no user and password/],
    ['without an address', without('a=candidate'), /names no address/],
    ['with a name that nobody else can look up',
      replaced('a=candidate', 'a=candidate:1 1 udp 1 ' +
        '0d5e7d4a-9bd2-4a57-8f4e-6f5b1a0c0b1d.local 50000 typ host'),
      /names no address/],
    ['with a way by TCP alone', replaced('a=candidate',
      'a=candidate:1 1 tcp 1 127.0.0.1 9 typ host tcptype active'),
    /names no address/],
    ['with a user that fills a frame', replaced('a=ice-ufrag',
      `a=ice-ufrag:${'a'.repeat(70_000)}`), /no user and password/],
    ['with a digest that is broken', replaced('a=fingerprint',
      'a=fingerprint:md5 12:34'), /no fingerprint/],
  ]) {
    test(`${what} is refused`, () => {
      assert.throws(() => read(lines),
        { code: 'ERR_PUBLISH_ANSWER', message });
    });
  }

  test('may be in another order, and without names of its media', () => {
    const sound = answerLines.findIndex((line) => line.startsWith('m=audio'));
    const pictures =
      answerLines.findIndex((line) => line.startsWith('m=video'));
    const { video, audio } = read([
      ...answerLines.slice(0, pictures), ...answerLines.slice(sound),
      ...answerLines.slice(pictures, sound),
    ].filter((line) => !line.startsWith('a=mid')));
    assert.deepEqual([video.payloadType, video.rids, audio.payloadType],
      [96, ['h', 'm'], 111]);
  });

  test('may have fingerprints and candidates that are for others', () => {
    const { transport } = read(answerLines.flatMap((line) => {
      if (line.startsWith('a=fingerprint')) {
        return ['a=fingerprint:sha-1 AA:BB', line];
      }
      return line.startsWith('a=candidate')
        ? ['a=candidate:', `a=candidate:1 1 udp ${'1'.repeat(70_000)}`, line]
        : [line];
    }));
    assert.equal(transport.fingerprint, 'sha-256 12:34');
    assert.deepEqual(transport.candidates,
      ['candidate:1 1 udp 1 127.0.0.1 50000 typ host']);
  });

  test('of many thousand lines does not hold the process up', () => {
    const start = answerLines.slice(0, answerLines.indexOf('a=mid:0'));
    const transport = answerLines.filter((line) =>
      /^a=(ice|fingerprint|candidate)/.test(line));
    for (const line of ['a=rtpmap:96 H264/90000', 'a=fmtp:96 x', 'm=video 9 x 96',
      'a=extmap:1 x', 'a=candidate:1 1 udp 1 127.0.0.1 1 typ host']) {
      const lines = [...start, ...transport,
        ...new Array(Math.floor(200_000 / line.length)).fill(line)];
      const before = process.cpuUsage();
      assert.throws(() => read(lines), /has no H\.264/);
      const { user } = process.cpuUsage(before);
      // Some fifty milliseconds; each line against each other takes twenty
      // seconds.
      assert.ok(user < 5e6, `${line}: ${user} microseconds`);
    }
  });

  test('cannot put lines of its own into what the transport is told', () => {
    for (const bad of ['a=ice-ufrag:a\nsetup active', 'a=ice-ufrag:a b']) {
      const lines = replaced('a=ice-ufrag', bad);
      let user;
      try {
        ({ user } = read(lines).transport);
      } catch {
        continue;
      }
      assert.match(user, /^\w+$/);
    }
  });

  test('of any text never fails in another way', () => {
    let seed = 1;
    const random = (limit) => {
      seed = (seed * 1_103_515_245 + 12_345) % 2 ** 31;
      return seed % limit;
    };
    for (let round = 0; round < 3_000; round += 1) {
      const lines = [...answerLines];
      for (let change = random(6); change >= 0; change -= 1) {
        const at = random(lines.length);
        const line = lines[at];
        const cut = random(line.length + 1);
        lines[at] = [line.slice(0, cut), `${line}${line}`, lines[random(
          lines.length)], line.slice(cut)][random(4)];
      }
      try {
        read(lines);
      } catch (error) {
        assert.equal(error.code, 'ERR_PUBLISH_ANSWER', error.stack);
      }
    }
  });
});
