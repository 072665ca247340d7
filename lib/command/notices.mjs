import { isPortalThere } from './doctor_portal.mjs';

const complain = ({ message }) => console.error(`linux-capture: ${message}`);

/** Tells what a capture lives through, and when it is over. */
export function tellTroubles(capture,
  { trouble = complain, recovered = complain } = {}) {
  capture.events.on('error', (error) => {
    // The end of the capture tells what is fatal.
    if (!error.isFatal) trouble(error);
  });
  capture.events.on('recovered', recovered);
}

/** Sends the user to the dialog, where there will be one. */
export async function tellToChoose(source, purpose, signal,
  say = console.log) {
  if (source.type === 'portal' && await isPortalThere(signal)) {
    say(`Choose what to ${purpose} in the dialog of the desktop.`);
  }
}

/** How the picture differs from its source; null where it does not. */
export function scalingText({ width, height }, source, asked) {
  const whole = `${source.width}x${source.height}`;
  // Encoders take even numbers only.
  const isWhole = source.width - width < 2 && source.height - height < 2;
  if (asked.width === undefined) {
    return isWhole ? null : `The picture of ${whole} is scaled down; ` +
      `--size ${whole} keeps all of it.`;
  }
  return asked.width - width < 2 && asked.height - height < 2 ? null
    : `A picture of ${whole} is ${width}x${height} within ${
      asked.width}x${asked.height}.`;
}
