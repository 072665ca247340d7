// How ffmpeg is told to wrap pictures and sound for these.
const wrappings = Object.freeze({
  rtmp: ['-f', 'flv', '-flvflags', 'no_duration_filesize'],
  rtmps: ['-f', 'flv', '-flvflags', 'no_duration_filesize'],
  srt: ['-f', 'mpegts'],
  tcp: ['-f', 'mpegts'],
  udp: ['-f', 'mpegts'],
});

export const streamSchemes = Object.freeze(Object.keys(wrappings));

const schemePattern = /^([a-z][a-z0-9+.-]*):\/\//i;

/** The scheme of an address, in small letters; null for the name of a file. */
export const schemeOf = (text) =>
  schemePattern.exec(text)?.[1].toLowerCase() ?? null;

export const wrappingOf = (address) => wrappings[schemeOf(address)];

// Shorter ones stand in too many words.
const shortestSecret = 3;

/** What of an address may be shown: where it leads, without names and keys. */
export function shownAddress(address) {
  const [, scheme, rest] = /^(\w+):\/\/(.*)$/s.exec(address);
  const [authority, ...more] = rest.split(/[/?#]/);
  const host = authority.slice(authority.lastIndexOf('@') + 1);
  return `${scheme.toLowerCase()}://${host}${more.length > 0 ? '/…' : ''}`;
}

function decoded(text) {
  try {
    return decodeURIComponent(text);
  } catch {
    return text;
  }
}

/** A text of another program, without what an address keeps secret. */
export function withoutSecrets(text, address) {
  const shown = shownAddress(address);
  const host = shown.split('/')[2];
  const parts = address.replace(schemePattern, '').split(/[/?#&=@:]/)
    .flatMap((part) => [part, decoded(part)])
    .filter((part) => part.length >= shortestSecret && !host.includes(part))
    .sort((a, b) => b.length - a.length);
  return parts.reduce((left, part) => left.replaceAll(part, '…'),
    text.replaceAll(address, shown));
}
