import { onlyOne, rectangle, withJoinedValue, withOptionalValue } from
  './option_values.mjs';
import { requireName } from './remembered.mjs';
import { UsageError } from './usage.mjs';

/** The options that say what to capture. */
export const sourceOptionTypes = {
  monitor: { type: 'string' },
  pointer: { type: 'string' },
  portal: { type: 'boolean' },
  region: { type: 'string' },
  remember: { type: 'string' },
  select: { type: 'boolean' },
  window: { type: 'string' },
};

/**
 * The words of a command with each value of theirs where it is looked for.
 * `isValue` tells what may be the name of a monitor.
 */
export const withSourceValues = (args,
  isValue = (text) => !text.startsWith('-')) =>
  // What begins with a negative number would be taken for an option.
  withJoinedValue(withOptionalValue(args, 'monitor', isValue), 'region',
    (text) => /^-\d/.test(text));

/** Every window has a number; a title of digits alone has to give way. */
function windowOf(text) {
  return /^(0x[0-9a-f]+|\d+)$/i.test(text) ? { id: Number(text) }
    : { title: text };
}

const monitorOf = (name) => (name === undefined || name === ''
  ? { type: 'monitor' } : { type: 'monitor', name });

// The request of the native module has no place for a part of a screen cast or
// of a window.
function requireScreen(option, values, environment) {
  const { portal, remember, window, monitor } = values;
  const taken = portal || remember !== undefined ? 'a screen cast'
    : window !== undefined ? 'a window'
      : monitor === undefined && environment.WAYLAND_DISPLAY
        ? 'a screen cast, which is all that Wayland has,' : null;
  if (taken !== null) {
    throw new UsageError(
      `--${option} is for a screen of X11: ${taken} is only taken whole`);
  }
}

/** How the pointer is to be shown; undefined when nothing is said. */
export function pointerOf({ pointer }) {
  if (pointer !== undefined && !['embedded', 'hidden'].includes(pointer)) {
    throw new UsageError('--pointer takes embedded or hidden');
  }
  return pointer;
}

function placeOf(values, environment) {
  if (onlyOne(values, ['region', 'select']) === 'region') {
    requireScreen('region', values, environment);
    return { ...monitorOf(values.monitor),
      // With a monitor the region is one of its own.
      isWholeScreen: values.monitor === undefined,
      region: rectangle('region', values.region) };
  }
  if (values.select) {
    requireScreen('select', values, environment);
    onlyOne(values, ['select', 'monitor']);
    return { type: 'monitor', isDrawn: true };
  }
  if (values.remember !== undefined) {
    onlyOne(values, ['remember', 'monitor', 'window']);
    return { type: 'portal', remember: requireName(values.remember) };
  }
  switch (onlyOne(values, ['portal', 'monitor', 'window'])) {
    case 'portal':
      return { type: 'portal' };
    case 'monitor':
      return monitorOf(values.monitor);
    case 'window':
      return { type: 'window', ...windowOf(values.window) };
    default:
      // A Wayland desktop shows X11 only the windows of X11 programs.
      return { type: environment.WAYLAND_DISPLAY || !environment.DISPLAY
        ? 'portal' : 'monitor' };
  }
}

/**
 * What to capture, for `chooseSource`: a source of the session, in which a
 * region has still to be drawn or looked for on the screen, and a choice that is
 * remembered in its file.
 */
export function sourceOf(values, environment) {
  const pointer = pointerOf(values);
  const source = placeOf(values, environment);
  if (pointer === undefined) return source;
  if (source.type === 'portal') return { ...source, cursor: pointer };
  if (pointer === 'hidden') {
    throw new UsageError('--pointer hidden is for the dialog of the desktop: ' +
      'a capture of X11 has the pointer in it');
  }
  return source;
}
