import session from '../session/index.js';
import visible from '../visible_text.js';
import { tellToChoose } from './notices.mjs';
import { readToken, remember } from './remembered.mjs';

const { quoted } = visible;

const withCode = (code, message) => Object.assign(new Error(message), { code });

/** The part of the screen that has all of these monitors. */
function around(rectangles) {
  return {
    x: 0,
    y: 0,
    width: Math.max(...rectangles.map(({ x, width }) => x + width)),
    height: Math.max(...rectangles.map(({ y, height }) => y + height)),
  };
}

const sizeText = ({ width, height }) => `${width}x${height}`;

/** The region as a rectangle of the screen, when it is one. */
export function regionOn(region, bounds, boundsName) {
  const { x, y, width, height } = region;
  if (x < 0 || y < 0 ||
    x + width > bounds.width || y + height > bounds.height) {
    throw new Error(`the region ${sizeText(region)} at ${x},${y} leaves ${
      boundsName} of ${sizeText(bounds)}`);
  }
  return { x: bounds.x + x, y: bounds.y + y, width, height };
}

/** A region may lie on more than one monitor; none ends where one does. */
async function placeRegion({ region, name, isWholeScreen }, signal) {
  const listed = await session.listTargets({ only: 'x11', signal });
  const { monitors } = listed;
  if (monitors === null) {
    throw withCode('ERR_CAPTURE_NO_DISPLAY', listed.problems[0].message);
  }
  const geometries = monitors.map(({ source }) => source.geometry);
  if (isWholeScreen) {
    return regionOn(region, around(geometries), 'the screen');
  }
  const monitor = name === undefined
    ? monitors.find(({ isPrimary }) => isPrimary) ?? monitors[0]
    : monitors.find((entry) => entry.name === name);
  if (monitor === undefined) {
    throw withCode('ERR_CAPTURE_NOT_FOUND', `there is no monitor ${
      quoted(name)}; there are ${
      monitors.map((entry) => quoted(entry.name)).join(', ')}`);
  }
  return regionOn(region, monitor.source.geometry,
    `the monitor ${quoted(monitor.name)}`);
}

/**
 * The source to start a session with, when everything in it is chosen;
 * `purpose` is what is done with it, and what the user is told goes to `say`.
 */
export async function chooseSource(wanted, purpose, signal,
  say = console.log) {
  if (wanted.region !== undefined) {
    return { type: 'monitor', geometry: await placeRegion(wanted, signal) };
  }
  if (wanted.isDrawn) {
    say('Draw a rectangle on the screen with the mouse; Esc gives up.');
    return { type: 'monitor', geometry: await session.selectRegion({ signal }) };
  }
  const { remember: name, ...source } = wanted;
  const restoreToken = name === undefined ? null : readToken(name);
  if (restoreToken === null) {
    await tellToChoose(source, purpose, signal, say);
  } else {
    say(`Taking the choice ${
      quoted(name)} again; where the desktop cannot, it asks.`);
  }
  return name === undefined ? source : {
    ...source,
    restoreToken,
    // Any later run is another program to the desktop.
    persist: 'permanent',
    onRestoreToken: (token) => remember(name, token),
  };
}
