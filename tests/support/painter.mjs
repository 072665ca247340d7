// Writes the numbered pictures of scene/scene_window.cc to standard output,
// thirty a second, as raw BGRx. Runs as a program of its own.
//
//   node painter.mjs WIDTH HEIGHT
import { setTimeout as sleep } from 'node:timers/promises';
import { patchColours } from './picture.mjs';

const [width, height] = process.argv.slice(2).map(Number);
const picture = Buffer.alloc(width * height * 4);

function fill([red, green, blue], left, top, right, bottom) {
  const row = Buffer.alloc((right - left) * 4);
  for (let at = 0; at < row.length; at += 4) {
    row.set([blue, green, red, 255], at);
  }
  for (let y = top; y < bottom; y += 1) {
    row.copy(picture, (y * width + left) * 4);
  }
}

const grey = (value) => [value, value, value];
const part = (whole, at, of) => Math.floor(whole * at / of);

function paintNumber(number) {
  for (let bit = 0; bit < 16; bit += 1) {
    const isSet = (number >> (15 - bit) & 1) !== 0;
    const [left, right] = [part(width, bit, 16), part(width, bit + 1, 16)];
    fill(grey(isSet ? 255 : 0), left, 0, right, part(height, 1, 8));
    fill(grey(isSet ? 0 : 255), left, part(height, 1, 8), right,
      part(height, 2, 8));
  }
}

fill(grey(0x40), 0, 0, width, height);
patchColours.forEach((colour, patch) => {
  const [column, row] = [patch % 4, Math.floor(patch / 4)];
  fill(colour, part(width, column, 4), part(height, 2 + 2 * row, 8),
    part(width, column + 1, 4), part(height, 4 + 2 * row, 8));
});

// The reader going away is how this program ends.
process.stdout.on('error', () => process.exit());
const begin = performance.now();
for (let number = 0; ; number += 1) {
  paintNumber(number);
  // The buffer is painted again only once it has been written.
  await new Promise((resolve) => {
    process.stdout.write(picture, resolve);
  });
  await sleep(Math.max(0, begin + (number + 1) * 1_000 / 30 -
    performance.now()));
}
