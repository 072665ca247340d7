import { parseArgs } from 'node:util';

import visible from '../visible_text.js';
import { UsageError } from './usage.mjs';

const { quoted, visibleText } = visible;

/** What is wrong, without the advice for programmers. */
function describe({ code, message }) {
  const [name] = /(?<=')-[^\s']*|(?<=').*?(?=')/.exec(message) ?? [''];
  switch (code) {
    case 'ERR_PARSE_ARGS_UNKNOWN_OPTION':
      return `there is no option ${visibleText(name)}`;
    case 'ERR_PARSE_ARGS_UNEXPECTED_POSITIONAL':
      return `${quoted(name)} is one word too many`;
    default:
      return /does not take/.test(message) ? `${name} takes no value`
        : `${name} needs a value`;
  }
}

/** As node:util's parseArgs, with errors that fit a line. */
export function parseOptions(args, options, { allowPositionals = false } = {}) {
  try {
    return parseArgs({
      args,
      options: { ...options, verbose: { type: 'boolean' } },
      allowPositionals,
    });
  } catch (error) {
    throw new UsageError(describe(error), { cause: error });
  }
}

function refuse(option, text, expected) {
  throw new UsageError(`--${option} takes ${expected}, not ${quoted(text)}`);
}

export function wholeNumber(option, text, most = 999_999_999) {
  if (!/^[1-9]\d{0,8}$/.test(text)) refuse(option, text, 'a whole number');
  const value = Number(text);
  if (value > most) throw new UsageError(`--${option} takes at most ${most}`);
  return value;
}

export function bitsPerSecond(option, text) {
  const match = /^(\d+(?:\.\d+)?)([kM]?)$/.exec(text);
  const factor = { '': 1, k: 1e3, M: 1e6 }[match?.[2]];
  const value = Math.round(Number(match?.[1]) * factor);
  if (!(value > 0)) refuse(option, text, 'bits per second such as 800k or 4M');
  return value;
}

/** Bytes, as disks count them. */
export function bytes(option, text) {
  const match = /^(\d+(?:\.\d+)?)([kMG]?)B?$/.exec(text);
  const factor = { '': 1, k: 1e3, M: 1e6, G: 1e9 }[match?.[2]];
  const value = Math.round(Number(match?.[1]) * factor);
  if (!(value > 0)) refuse(option, text, 'a size such as 700M or 4G');
  return value;
}

export function oneOf(option, text, values) {
  if (!values.includes(text)) refuse(option, text, values.join(' or '));
  return text;
}

export function size(option, text) {
  const match = /^([1-9]\d{0,4})[xX]([1-9]\d{0,4})$/.exec(text);
  if (match === null) refuse(option, text, 'a size such as 1280x720');
  return { width: Number(match[1]), height: Number(match[2]) };
}

/** A rectangle of the screen: "100,50,1280x720". */
export function rectangle(option, text) {
  const match =
    /^(-?\d{1,6}),(-?\d{1,6}),(\d{1,5})[xX](\d{1,5})$/.exec(text);
  if (match === null) {
    refuse(option, text, 'a place and a size such as 100,50,1280x720');
  }
  const [x, y, width, height] = match.slice(1).map(Number);
  if (width === 0 || height === 0) {
    throw new UsageError(`--${option} of ${width}x${height} has nothing in it`);
  }
  return { x, y, width, height };
}

/** Seconds, from "90", "1:30", "1:02:03" or "1h2m3s". */
export function duration(option, text) {
  const seconds = /^[\d:.]+$/.test(text)
    ? text.split(':').reduce((sum, part) => sum * 60 + Number(part), 0)
    : withUnits(text);
  if (!(seconds > 0)) refuse(option, text, 'a time such as 90, 1:30 or 1m30s');
  return seconds;
}

function withUnits(text) {
  const match =
    /^(?:(\d+)h)?(?:(\d+)m)?(?:(\d+(?:\.\d+)?)s)?$/.exec(text) ?? [];
  const [, hours = 0, minutes = 0, seconds = 0] = match;
  return Number(hours) * 3600 + Number(minutes) * 60 + Number(seconds);
}

/** `--name` alone may stand for `--name=`, when what follows is no value. */
export function withOptionalValue(args, name, isValue) {
  const option = `--${name}`;
  return args.flatMap((arg, index) => {
    const takesNext = (at) =>
      args[at] === option && args[at + 1] !== undefined &&
      isValue(args[at + 1]);
    if (arg === option) {
      return [takesNext(index) ? `${option}=${args[index + 1]}` : `${option}=`];
    }
    return takesNext(index - 1) ? [] : [arg];
  });
}

/** `--name VALUE` as `--name=VALUE`, where the value `isOdd`. */
export function withJoinedValue(args, name, isOdd) {
  const option = `--${name}`;
  const isJoined = (at) => args[at] === option && args[at + 1] !== undefined &&
    isOdd(args[at + 1]);
  return args.flatMap((arg, index) => {
    if (isJoined(index)) return [`${option}=${args[index + 1]}`];
    return isJoined(index - 1) ? [] : [arg];
  });
}

/** The name of the one option of several that is given, if any. */
export function onlyOne(values, names) {
  const given = names.filter((name) => values[name] !== undefined);
  if (given.length > 1) {
    throw new UsageError(
      `--${given[0]} and --${given[1]} exclude each other`);
  }
  return given[0];
}
