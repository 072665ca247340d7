/* global document, OffscreenCanvas -- what is evaluated runs in the page */
import { largestColourError, readNumber } from './picture.mjs';
import { until } from './until.mjs';

/** The present picture of a branch, as tests/support/picture.mjs takes it. */
export async function readCanvas(page, branch) {
  const { width, height, text } = await page.evaluate((wanted) => {
    const canvas = document.querySelector(`[data-branch="${wanted}"] canvas`);
    const { width, height } = canvas;
    // A copy: reading the canvas itself would change how it is drawn.
    const copy = new OffscreenCanvas(width, height)
      .getContext('2d', { willReadFrequently: true });
    copy.drawImage(canvas, 0, 0);
    const { data } = copy.getImageData(0, 0, width, height);
    let text = '';
    for (let at = 0; at < data.length; at += 4) {
      text += String.fromCharCode(data[at], data[at + 1], data[at + 2]);
    }
    return { width, height, text: btoa(text) };
  }, branch);
  return { width, height, data: Buffer.from(text, 'base64') };
}

/** Waits for the scene's own colours; gives the largest error of the last. */
export async function waitForColours(page, branch, mostError) {
  let error;
  try {
    await until(async () => {
      error = largestColourError(await readCanvas(page, branch));
      return error <= mostError;
    }, 'the colours', 30_000);
  } catch {
    // The error tells more.
  }
  return error;
}

/** Waits until the numbers that the scene shows have changed so often. */
export async function waitForMotion(page, branch, times) {
  const seen = new Set();
  await until(async () => {
    const number = readNumber(await readCanvas(page, branch));
    if (number !== null) seen.add(number);
    return seen.size > times;
  }, `${times} changes of branch ${branch}`, 30_000);
}

const figureSelector = (branch, name) =>
  `.tile[data-branch="${branch}"] .${name}`;

/** A figure of a tile, such as "fps" or "keyframes". */
export async function figure(page, branch, name) {
  return Number(await page.text(figureSelector(branch, name)));
}

export async function waitForPictures(page, count) {
  await page.until(
    `document.querySelectorAll('.tile.has-picture').length === ${count}`,
    `${count} pictures`, 60_000);
}
