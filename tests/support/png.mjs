import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

const run = promisify(execFile);

/** A picture file as ffmpeg reads it, in RGB. */
export async function readPng(file) {
  const options = { encoding: 'buffer', maxBuffer: 1 << 28 };
  const { stdout: data } = await run('ffmpeg', ['-v', 'error', '-i', file,
    '-f', 'rawvideo', '-pix_fmt', 'rgb24', '-'], options);
  const { stdout: size } = await run('ffprobe', ['-v', 'error',
    '-show_entries', 'stream=width,height,pix_fmt', '-of', 'csv=p=0', file]);
  const [width, height, format] = size.trim().split(',');
  return { width: Number(width), height: Number(height), format, data };
}

/** The colours in a part of a picture, as "r,g,b", with how often each is. */
export function coloursIn(picture, { x, y, width, height }) {
  const counts = {};
  for (let row = y; row < y + height; row += 1) {
    for (let column = x; column < x + width; column += 1) {
      const at = (row * picture.width + column) * 3;
      const colour = picture.data.subarray(at, at + 3).join();
      counts[colour] = (counts[colour] ?? 0) + 1;
    }
  }
  return counts;
}
