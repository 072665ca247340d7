import { execFile } from 'node:child_process';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { promisify } from 'node:util';

const run = promisify(execFile);
const maxBuffer = 1 << 30;

async function withStreamFile(packets, use) {
  const folder = await mkdtemp(path.join(tmpdir(), 'linux-capture-test-'));
  try {
    const file = path.join(folder, 'stream.h264');
    await writeFile(file, Buffer.concat(packets.map(({ payload }) => payload)));
    return await use(file);
  } finally {
    await rm(folder, { recursive: true, force: true });
  }
}

/**
 * Decodes the packets of one branch with ffmpeg as a player would and returns
 * the pictures as RGB, together with every line ffmpeg had to complain about.
 *
 * ffmpeg's scaler takes matrix and range from the decoded picture, that is from
 * the stream's own description; nothing about colour is told to it here.
 */
export async function decodeToRgb(packets) {
  const { width, height } = packets[0];
  return withStreamFile(packets, async (file) => {
    const { stdout, stderr } = await run(
      'ffmpeg',
      [
        '-v', 'error', '-f', 'h264', '-i', file,
        // One picture out for one picture in: no repeats, nothing left out.
        '-fps_mode', 'passthrough',
        '-sws_flags', 'accurate_rnd+full_chroma_int',
        '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-',
      ],
      { encoding: 'buffer', maxBuffer },
    );
    const size = width * height * 3;
    const pictures = [];
    for (let at = 0; at + size <= stdout.length; at += size) {
      pictures.push({ width, height, data: stdout.subarray(at, at + size) });
    }
    return {
      pictures,
      leftOver: stdout.length % size,
      errors: stderr.toString('utf8'),
    };
  });
}

/** What ffprobe reads out of the packets of one branch. */
export async function probe(packets) {
  return withStreamFile(packets, async (file) => {
    const { stdout, stderr } = await run(
      'ffprobe',
      [
        '-v', 'error', '-f', 'h264', '-of', 'json',
        '-show_streams', '-show_frames', file,
      ],
      { maxBuffer },
    );
    const { streams, frames } = JSON.parse(stdout);
    return { stream: streams[0], frames, errors: stderr };
  });
}
