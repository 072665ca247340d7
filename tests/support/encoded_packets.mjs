import { execFileSync } from 'node:child_process';

const pictureUs = 40_000;

/**
 * Access units of another encoder, as a session delivers them, 25 pictures a
 * second. `source` is one of ffmpeg's.
 */
export function encodedPackets({
  source, pictures, keyframeEvery, width = 160, height = 90,
}) {
  const stream = execFileSync('ffmpeg', [
    '-v', 'error', '-f', 'lavfi', '-i', `${source}=size=${width}x${height}:rate=25`,
    '-frames:v', String(pictures), '-c:v', 'libx264', '-preset', 'ultrafast',
    '-bf', '0', '-g', String(keyframeEvery), '-sc_threshold', '0',
    '-x264-params', 'aud=1:sliced-threads=0', '-f', 'h264', '-',
  ], { maxBuffer: 1 << 27 });
  const delimiter = Buffer.from([0, 0, 0, 1, 9]);
  const begins = [];
  for (let at = stream.indexOf(delimiter); at !== -1;
    at = stream.indexOf(delimiter, at + 1)) {
    begins.push(at);
  }
  return begins.map((begin, i) => ({
    type: 'video',
    data: stream.subarray(begin, begins[i + 1]),
    timestampUs: 1_000_000 + i * pictureUs,
    durationUs: pictureUs,
    width,
    height,
    isKeyframe: i % keyframeEvery === 0,
  }));
}
