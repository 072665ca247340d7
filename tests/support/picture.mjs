/** The patches of scene/scene_window.cc: four above four, left to right. */
export const patchColours = Object.freeze([
  [0xc8, 0x1e, 0x32], [0x1e, 0xa0, 0x3c], [0x28, 0x50, 0xc8],
  [0xdc, 0xb4, 0x14], [0x80, 0x80, 0x80], [0xff, 0xff, 0xff],
  [0x00, 0x00, 0x00], [0x20, 0xb4, 0xb4],
]);

/** The mean colour of a few pixels around a place given in parts of one. */
export function colourAt({ width, height, data }, partX, partY, reach = 1) {
  const centreX = Math.floor(width * partX);
  const centreY = Math.floor(height * partY);
  const sum = [0, 0, 0];
  let count = 0;
  for (let y = centreY - reach; y <= centreY + reach; y += 1) {
    for (let x = centreX - reach; x <= centreX + reach; x += 1) {
      const at = (y * width + x) * 3;
      sum.forEach((_, channel) => {
        sum[channel] += data[at + channel];
      });
      count += 1;
    }
  }
  return sum.map((value) => value / count);
}

export function patchAt(picture, patch) {
  return colourAt(picture, (patch % 4 + 0.5) / 4, patch < 4 ? 3 / 8 : 5 / 8);
}

/** The largest difference of one channel between any patch and its colour. */
export function largestColourError(picture) {
  return Math.max(...patchColours.map((colour, patch) => {
    const seen = patchAt(picture, patch);
    return Math.max(
      ...colour.map((value, channel) => Math.abs(value - seen[channel])));
  }));
}

function median(values) {
  return values.sort((a, b) => a - b)[Math.floor(values.length / 2)];
}

/**
 * The same for what a patch looks like in most of the pictures: a single one
 * may be off by what the encoder's quantiser takes away.
 */
export function typicalColourError(pictures) {
  return Math.max(...patchColours.flatMap((colour, patch) => {
    const seen = pictures.map((picture) => patchAt(picture, patch));
    return colour.map((value, channel) =>
      Math.abs(value - median(seen.map((rgb) => rgb[channel]))));
  }));
}

/**
 * The number that a picture of the scene carries, or null when the picture is
 * not one whole picture of the scene: every cell must be clearly black or white
 * and the row below must show the opposite.
 */
export function readNumber(picture) {
  let number = 0;
  for (let bit = 0; bit < 16; bit += 1) {
    const x = (bit + 0.5) / 16;
    const [upper] = colourAt(picture, x, 1 / 16);
    const [lower] = colourAt(picture, x, 3 / 16);
    if (Math.abs(upper - lower) < 128) return null;
    number = number * 2 + (upper > lower ? 1 : 0);
  }
  return number;
}

/**
 * How many pictures repeat the one before although the scene had gone on. What
 * the scene itself was late with, on a busy machine, is not among them: it
 * counts the pictures that it has drawn. `pace` is how many it draws in one
 * period of the branch.
 */
export function missedPictures(numbers, pace) {
  let missed = 0;
  let repeats = 0;
  for (let i = 1; i < numbers.length; i += 1) {
    const drawn = numbers[i] - numbers[i - 1];
    if (drawn === 0) {
      repeats += 1;
    } else {
      missed += Math.min(repeats, Math.max(0, Math.round(drawn / pace) - 1));
      repeats = 0;
    }
  }
  return missed;
}
