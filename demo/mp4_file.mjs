import { nalType, splitNalUnits } from '../tests/support/annex_b.mjs';

// Ticks per second of the file's clocks: the usual one for H.264, and fine
// enough that rounding is never seen.
const timescale = 90_000;

const ticksOf = (timestampUs) => Math.round((timestampUs * timescale) / 1e6);

const u8 = (...values) => Buffer.from(values);

function u16(...values) {
  const bytes = Buffer.alloc(2 * values.length);
  values.forEach((value, i) => bytes.writeUInt16BE(value, 2 * i));
  return bytes;
}

function u32(...values) {
  const bytes = Buffer.alloc(4 * values.length);
  values.forEach((value, i) => bytes.writeUInt32BE(value, 4 * i));
  return bytes;
}

function box(type, ...content) {
  const body = Buffer.concat(content);
  return Buffer.concat([u32(body.length + 8), Buffer.from(type), body]);
}

const fullBox = (type, flags, ...content) =>
  box(type, u32(flags), ...content);

const unityMatrix = u32(0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000);

function decoderConfiguration(sps, pps) {
  return box(
    'avcC',
    u8(1, sps[1], sps[2], sps[3], 0xff),
    u8(0xe1), u16(sps.length), sps,
    u8(1), u16(pps.length), pps,
  );
}

function sampleEntry({ width, height, sps, pps }) {
  return box(
    'avc1',
    Buffer.alloc(6), u16(1), Buffer.alloc(16), u16(width, height),
    u32(0x480000, 0x480000, 0), u16(1), Buffer.alloc(32), u16(24, 0xffff),
    decoderConfiguration(sps, pps),
  );
}

function sampleTable(track, firstByte) {
  const { samples } = track;
  const keyframes = samples.flatMap((s, i) => (s.isKeyFrame ? [i + 1] : []));
  return box(
    'stbl',
    fullBox('stsd', 0, u32(1), sampleEntry(track)),
    fullBox('stts', 0, u32(samples.length),
      u32(...samples.flatMap((s) => [1, s.duration]))),
    fullBox('stss', 0, u32(keyframes.length), u32(...keyframes)),
    fullBox('stsc', 0, u32(1, 1, samples.length, 1)),
    fullBox('stsz', 0, u32(0, samples.length),
      u32(...samples.map((s) => s.data.length))),
    fullBox('stco', 0, u32(1, firstByte)),
  );
}

function movie(track, firstByte) {
  const { width, height, samples } = track;
  const duration = samples.reduce((sum, s) => sum + s.duration, 0);
  const noLanguage = 0x55c4;
  return box(
    'moov',
    fullBox('mvhd', 0, u32(0, 0, timescale, duration, 0x10000), u16(0x100, 0),
      u32(0, 0), unityMatrix, Buffer.alloc(24), u32(2)),
    box('trak',
      fullBox('tkhd', 3, u32(0, 0, 1, 0, duration, 0, 0), u16(0, 0, 0, 0),
        unityMatrix, u32(width * 65536, height * 65536)),
      box('mdia',
        fullBox('mdhd', 0, u32(0, 0, timescale, duration), u16(noLanguage, 0)),
        fullBox('hdlr', 0, u32(0), Buffer.from('vide'), Buffer.alloc(12),
          Buffer.from('video\0')),
        box('minf',
          fullBox('vmhd', 1, u16(0, 0, 0, 0)),
          box('dinf', fullBox('dref', 0, u32(1), fullBox('url ', 1))),
          sampleTable(track, firstByte)))),
  );
}

// A prefix unit says again what the packet's temporal index says, and players
// have no use for it in a file of one layer.
function withLengths(units) {
  return Buffer.concat(
    units
      .filter(({ type }) => type !== nalType.prefix)
      .flatMap(({ unit }) => [u32(unit.length), unit]),
  );
}

/**
 * The bytes of an MP4 file with the video packets of one branch, each shown
 * for as long as its timestamps say, so that it plays at the right speed even
 * where pictures were left out. The first packet must be a keyframe.
 */
export function composeMp4(packets) {
  const accessUnits = packets.map(({ payload }) => splitNalUnits(payload));
  const find = (wanted) =>
    accessUnits[0]?.find(({ type }) => type === wanted)?.unit;
  const sps = find(nalType.sps);
  const pps = find(nalType.pps);
  if (sps === undefined || pps === undefined) {
    throw new Error('the stream does not begin with a keyframe');
  }
  const times = packets.map(({ timestampUs }) => ticksOf(timestampUs));
  times.push(times.at(-1) + ticksOf(packets.at(-1).durationUs));
  const samples = packets.map(({ isKeyFrame }, i) => ({
    isKeyFrame,
    duration: times[i + 1] - times[i],
    data: withLengths(accessUnits[i]),
  }));
  const { width, height } = packets[0];
  const fileType = box('ftyp', Buffer.from('isom'), u32(0x200),
    Buffer.from('isomiso2avc1mp41'));
  const media = box('mdat', ...samples.map(({ data }) => data));
  return Buffer.concat([
    fileType,
    media,
    movie({ width, height, sps, pps, samples }, fileType.length + 8),
  ]);
}
