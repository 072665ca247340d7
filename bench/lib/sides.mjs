// What is compared, and with which settings. The peers are set as near to the
// module as their switches allow.
import { screen as usualScreen } from './scenarios.mjs';

/** The module's own rule: two seconds, rounded up to whole pairs. */
const keyframePeriod = (fps) => Math.ceil((2 * fps) / 2) * 2;

const highestRate = (branches) => Math.max(...branches.map(({ fps }) => fps));

/** What the module is asked for. */
export function moduleRequest(
  { branches, layers = 1, screen = usualScreen }) {
  const [primary, ...secondaries] = branches;
  return {
    source: {
      backend: 'x11',
      kind: 'monitor',
      handle: null,
      geometry: { x: 0, y: 0, ...screen },
    },
    capture: {
      ...primary,
      minBitrate: 100_000,
      temporalLayerCount: layers,
      gopSize: 60,
      bFrames: 0,
      enableCABAC: false,
      lowLatencyMode: true,
      encoderRequirement: 'allow-degraded',
      topology: {
        mode: 'topology',
        branches: secondaries.map(({ maxBitrate: _, ...branch }) => branch),
      },
    },
    audio: { mode: 'none' },
  };
}

const fullRange709 = ',colorimetry=1:3:5:1';

// The module's launch text up to the encoder, with the source's rate pinned as
// the module pins it: without that a slower branch would set the rate of all.
function stagesText({ branches }, colour, sinkOf) {
  const source = 'ximagesrc startx=0 starty=0' +
    ` endx=${usualScreen.width - 1} endy=${usualScreen.height - 1}` +
    ' do-timestamp=true use-damage=false show-pointer=true';
  const queue = 'queue max-size-buffers=4 leaky=downstream';
  const head = `${source} ! ${queue} ! videoconvert ! ` +
    `video/x-raw,format=I420${colour},framerate=${highestRate(branches)}/1` +
    ' ! tee name=t';
  return [head, ...branches.map((branch, i) =>
    `t. ! ${queue} ! videoscale ! videorate skip-to-first=true ! ` +
    `video/x-raw,format=I420${colour},width=${branch.width},` +
    `height=${branch.height},framerate=${branch.fps}/1 ! ${sinkOf(branch, i)}`),
  ].join(' ');
}

// What ApplyBranchParameters sets, as far as the element has a property for it.
const encoderText = ({ bitrate, maxBitrate, fps }) =>
  `openh264enc usage-type=screen complexity=low rate-control=bitrate` +
  ` bitrate=${bitrate} max-bitrate=${maxBitrate}` +
  ` gop-size=${keyframePeriod(fps)} multi-thread=1` +
  ' slice-mode=n-slices num-slices=1 deblocking=on enable-denoise=false' +
  ' background-detection=false adaptive-quantization=true' +
  ' scene-change-detection=false enable-frame-skip=false ! ' +
  'video/x-h264,profile=constrained-baseline';

const launch = (text) => ['gst-launch-1.0', '-q', ...text.split(' ')];

const gstPeer = (scenario, colour) => launch(stagesText(scenario, colour,
  (branch, i) => `${encoderText(branch)} ! fdsink sync=false fd=${3 + i}`));

const ffmpegPeer = ({ branches }, display) => {
  const labels = branches.map((_, i) => `[v${i}]`);
  // One conversion for all branches, and no scaling of pictures that the lower
  // rate leaves out.
  const graph = `[0:v]format=yuv420p,split=${branches.length}` +
    branches.map((_, i) => `[s${i}]`).join('') +
    branches.map(({ width, height, fps }, i) => `;[s${i}]fps=${fps},` +
      `scale=${width}:${height}${labels[i]}`).join('');
  return [
    'ffmpeg', '-v', 'error', '-nostdin',
    // Without a look ahead at the stream, whose format is known.
    '-probesize', '32', '-analyzeduration', '0',
    '-f', 'x11grab', '-framerate', String(highestRate(branches)),
    '-video_size', `${usualScreen.width}x${usualScreen.height}`, '-draw_mouse', '1',
    '-i', display, '-filter_complex', graph,
    ...branches.flatMap(({ bitrate, maxBitrate, fps }, i) => [
      '-map', labels[i], '-c:v', 'libx264', '-preset', 'ultrafast',
      '-tune', 'zerolatency', '-profile:v', 'baseline',
      '-b:v', String(bitrate), '-maxrate', String(maxBitrate),
      '-bufsize', String(maxBitrate), '-g', String(keyframePeriod(fps)),
      '-flush_packets', '1', '-f', 'h264', `pipe:${3 + i}`,
    ]),
  ];
};

/**
 * A side is the module, or a command whose branches arrive on the pipes from
 * descriptor 3 on. "limit" is no program that anyone could use: the stages of
 * the pipeline without an encoder, and the encoder without the pipeline.
 */
export const sides = Object.freeze([
  { name: 'module', title: 'this module' },
  {
    name: 'gst',
    title: 'gst-launch-1.0, openh264enc',
    command: (scenario) => gstPeer(scenario, ''),
  },
  {
    name: 'gst-colour',
    title: 'the same, colour pinned',
    command: (scenario) => gstPeer(scenario, fullRange709),
  },
  { name: 'ffmpeg', title: 'ffmpeg, libx264', command: ffmpegPeer },
  { name: 'limit', title: 'stock stages + bare encoder' },
]);

/** The stages of "limit". It prints when it plays. */
export const stagesCommand = (scenario) =>
  ['gst-launch-1.0', ...stagesText(scenario, fullRange709,
    () => 'fakesink sync=false').split(' ')];
