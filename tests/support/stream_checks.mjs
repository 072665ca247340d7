import assert from 'node:assert/strict';
import {
  hasIdrSlice, nalType, splitNalUnits, startsWithStartCode,
} from './annex_b.mjs';
import { decodeToRgb, probe } from './decode.mjs';
import { packetKeys } from './statistics_keys.mjs';

/** The encoder's keyframe distance: two seconds, rounded up to whole layers. */
export function keyframePeriod(fps, temporalLayers) {
  const multiple = 2 ** temporalLayers;
  return Math.ceil(2 * fps / multiple) * multiple;
}

/** Decodes one branch and requires one flawless picture for every packet. */
export async function decodeFlawlessly(packets) {
  // A capture that has just been stopped may still be delivering into it.
  const present = [...packets];
  const { pictures, leftOver, errors } = await decodeToRgb(present);
  assert.equal(errors, '');
  assert.equal(leftOver, 0);
  assert.equal(pictures.length, present.length);
  return pictures;
}

/** What the stream itself says about size, profile and colour. */
export async function checkDescription(packets, { width, height }) {
  const { stream, frames, errors } = await probe(packets);
  assert.equal(errors, '');
  const described = ({ codec_name, profile, color_range, color_space,
    color_primaries, color_transfer, ...rest }) => ({
    codec_name, profile, width: rest.width, height: rest.height, color_range,
    color_space, color_primaries, color_transfer,
  });
  assert.deepEqual(described(stream), {
    codec_name: 'h264',
    profile: 'Constrained Baseline',
    width,
    height,
    color_range: 'pc',
    color_space: 'bt709',
    color_primaries: 'bt709',
    color_transfer: 'bt709',
  });
  assert.equal(frames.length, packets.length);
  return frames;
}

/** Keyframes stand where the encoder's period puts them, in the stream. */
export function checkKeyframes(packets, frames, period) {
  const expected = packets.map((_, index) => index % period === 0);
  assert.deepEqual(packets.map(({ payload }) => hasIdrSlice(payload)),
    expected);
  assert.deepEqual(frames.map(({ key_frame: key }) => key === 1), expected);
  assert.deepEqual(packets.map(({ isKeyFrame }) => isKeyFrame), expected);
}

/** Every packet is one whole access unit in Annex B form. */
export function checkAccessUnits(packets) {
  for (const { payload } of packets) {
    assert.ok(startsWithStartCode(payload));
    const types = splitNalUnits(payload).map(({ type }) => type);
    const isKey = types.includes(nalType.idrSlice);
    assert.deepEqual(types, isKey
      ? [nalType.sps, nalType.pps, nalType.idrSlice]
      : [nalType.slice]);
  }
}

/** The layers of successive pictures, counted from a keyframe. */
const layerPatterns = { 1: [0], 2: [0, 1], 3: [0, 2, 1, 2] };

/**
 * Layers are what they claim to be: they follow the dyadic pattern, only the
 * uppermost one is marked as referenced by nothing, and a stream without its
 * upper layers decodes to the very pictures that the whole stream has there.
 */
export async function checkTemporalLayers(packets, pictures, layerCount) {
  const pattern = layerPatterns[layerCount];
  const indices = packets.map(({ temporalIndex }) => temporalIndex);
  assert.deepEqual(indices,
    indices.map((_, position) => pattern[position % pattern.length]));

  packets.forEach(({ payload }, position) => {
    const isReferenced = splitNalUnits(payload).at(-1).referenceIdc > 0;
    assert.equal(isReferenced,
      layerCount === 1 || indices[position] < layerCount - 1);
  });

  for (let kept = 1; kept < layerCount; kept += 1) {
    const isKept = (_, position) => indices[position] < kept;
    const lower = await decodeFlawlessly(packets.filter(isKept));
    pictures.filter(isKept).forEach((picture, position) => {
      assert.ok(picture.data.equals(lower[position].data),
        `picture ${position} needs a layer above ${kept - 1}`);
    });
  }
}

/** The keys and the unchanging values of every packet of a branch. */
export function checkPacketShape(packets, { width, height, branchIndex }) {
  for (const packet of packets) {
    assert.deepEqual(Object.keys(packet), packetKeys);
    assert.equal(packet.type, 'video');
    assert.ok(Buffer.isBuffer(packet.payload));
    assert.equal(packet.timestamp, packet.timestampUs);
    assert.equal(packet.width, width);
    assert.equal(packet.height, height);
    assert.equal(packet.branchIndex, branchIndex);
  }
}

/** Times grow strictly and run on the clock that started with the session. */
export function checkTiming(packets, arrivalsUs, { fps, originUs }) {
  const period = 1e6 / fps;
  packets.forEach((packet, index) => {
    if (index > 0) {
      assert.ok(packet.timestampUs > packets[index - 1].timestampUs,
        `packet ${index} of ${packet.branchIndex} is not later`);
    }
    assert.ok(Math.abs(packet.durationUs - period) <= 1,
      `${packet.durationUs} us at ${fps} pictures a second`);
    const age = arrivalsUs[index] - originUs - packet.timestampUs;
    // The rate adapter may stamp a picture up to one period ahead.
    assert.ok(age > -period && age < 1e6, `packet ${index} is ${age} us old`);
  });
  // A busy machine leaves pictures out; those around them keep their distance.
  const steps = packets.slice(1).map((packet, index) =>
    packet.timestampUs - packets[index].timestampUs);
  const usual = steps.sort((a, b) => a - b)[Math.floor(steps.length / 2)];
  assert.ok(Math.abs(usual / period - 1) < 0.1,
    `mostly one picture every ${usual} us instead of ${period}`);
  const mean = (packets.at(-1).timestampUs - packets[0].timestampUs) /
    (packets.length - 1);
  assert.ok(mean / period > 0.9,
    `one picture every ${mean} us instead of ${period}`);
}
