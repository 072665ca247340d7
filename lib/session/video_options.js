'use strict';

const { argumentError } = require('./errors.js');
const { requireInteger, requireObject, requireOneOf } =
  require('./options.js');

// A larger picture is brought down to as many pixels unless a size is asked
// for, since the software encoder shares the processor with everything else.
const mostPixels = 1920 * 1080;
const usualBitsPerPixel = 0.1;
const usualFps = 30;
const leastBitrate = 200_000;
const mostBitrate = 300_000_000;

// The software encoder's own distance of keyframes.
const softwareKeyframeSeconds = 2;

// What the software encoder takes at least.
const leastEdge = 16;
const mostEdge = 16_384;

const even = (value) => Math.max(2, 2 * Math.floor(value / 2));

/** The size of a picture of which one, both or no sides were asked for. */
function fitSize(width, height, source) {
  if (width !== undefined && height !== undefined) {
    return { width: even(width), height: even(height) };
  }
  const ratio = source.width / source.height;
  if (width !== undefined) {
    return { width: even(width), height: even(width / ratio + 0.5) };
  }
  if (height !== undefined) {
    return { width: even(height * ratio + 0.5), height: even(height) };
  }
  const scale =
    Math.min(1, Math.sqrt(mostPixels / (source.width * source.height)));
  return {
    width: even(source.width * scale),
    height: even(source.height * scale),
  };
}

/** Bits per second that show a screen of this size well. */
function usualBitrate({ width, height, fps }) {
  const bits = width * height * fps * usualBitsPerPixel;
  return Math.max(leastBitrate, Math.round(bits / 10_000) * 10_000);
}

function branchOf(entry, name, source, defaultFps) {
  const size = fitSize(entry.width, entry.height, source);
  const fps = requireInteger(entry.fps ?? defaultFps, `${name}.fps`, 1, 240);
  const bitrate = requireInteger(
    entry.bitrate ?? usualBitrate({ ...size, fps }), `${name}.bitrate`,
    1000, mostBitrate);
  return { ...size, fps, bitrate };
}

function secondaryBranches(list, primary) {
  if (!Array.isArray(list) || list.length > 2) {
    throw argumentError('video.branches must be a list of at most two');
  }
  let previous = primary;
  return list.map((entry, index) => {
    const name = `video.branches[${index}]`;
    requireObject(entry, name, ['width', 'height', 'fps', 'bitrate']);
    if (entry.width === undefined && entry.height === undefined) {
      throw argumentError(`${name} needs a width or a height`);
    }
    const branch =
      branchOf(entry, name, primary, Math.ceil(previous.fps / 2));
    // The native module leaves out such a branch without a word.
    if (!['width', 'height', 'fps']
      .every((key) => branch[key] < previous[key])) {
      throw argumentError(`${name} (${branch.width}x${branch.height}, ` +
        `${branch.fps} fps) must be smaller and slower than the branch ` +
        `before it (${previous.width}x${previous.height}, ` +
        `${previous.fps} fps)`);
    }
    previous = branch;
    return branch;
  });
}

/** Refuses what no source can give, before anybody is asked for one. */
function checkVideo(video = {}) {
  requireObject(video, 'video', ['width', 'height', 'fps', 'bitrate', 'layers',
    'branches', 'encoder', 'keyframeEvery']);
  requireOneOf(video.encoder ?? 'software', 'video.encoder',
    ['software', 'hardware']);
  const least = video.encoder === 'hardware' ? 2 : leastEdge;
  const secondary = Array.isArray(video.branches) ? video.branches : [];
  const entries = [['video', video], ...secondary.map((entry, index) =>
    [`video.branches[${index}]`, entry])];
  for (const [name, entry] of entries) {
    for (const side of ['width', 'height']) {
      if (entry?.[side] === undefined) continue;
      requireInteger(entry[side], `${name}.${side}`, least, mostEdge);
    }
  }
}

/** One given side may leave the other one too short. */
function requireEncodable({ width, height }, name) {
  if (width >= leastEdge && height >= leastEdge) return;
  throw argumentError(`${name} (${width}x${height}) is smaller than ` +
    `${leastEdge}x${leastEdge}, the least that the encoder takes`);
}

/**
 * Completes the options `video` for a source of this size. Returns the
 * `capture` part of the request and, where the encoder's own distance of
 * keyframes is longer than the one asked for, the seconds between requests.
 */
function planVideo(video = {}, source) {
  checkVideo(video);
  const isHardware = video.encoder === 'hardware';
  const primary = branchOf(video, 'video', source, usualFps);
  const branches = secondaryBranches(video.branches ?? [], primary);
  if (!isHardware) {
    const isAsked = video.width !== undefined || video.height !== undefined;
    // Otherwise it is the source that is too small, as the module says.
    if (isAsked) requireEncodable(primary, 'video');
    branches.forEach((branch, index) =>
      requireEncodable(branch, `video.branches[${index}]`));
  }
  const seconds = video.keyframeEvery ?? softwareKeyframeSeconds;
  if (typeof seconds !== 'number' || !(seconds >= 0.1 && seconds <= 20)) {
    throw argumentError(
      'video.keyframeEvery must be a number of seconds from 0.1 to 20');
  }
  return {
    capture: {
      ...primary,
      minBitrate: Math.max(1, Math.round(primary.bitrate / 4)),
      maxBitrate: Math.min(mostBitrate, Math.round(primary.bitrate * 1.5)),
      temporalLayerCount:
        requireInteger(video.layers ?? 1, 'video.layers', 1, 3),
      gopSize: Math.min(600, Math.max(1, Math.round(primary.fps * seconds))),
      bFrames: 0,
      enableCABAC: false,
      lowLatencyMode: true,
      encoderRequirement: isHardware ? 'hardware' : 'allow-degraded',
      topology: branches.length === 0 ? { mode: 'direct', branches }
        : { mode: 'topology', branches },
    },
    keyframeSeconds:
      !isHardware && seconds < softwareKeyframeSeconds ? seconds : null,
  };
}

module.exports = { checkVideo, planVideo };
