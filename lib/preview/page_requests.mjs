const checks = {
  watch: ({ branches, sound }) => Array.isArray(branches) &&
    branches.every(Number.isInteger) && typeof sound === 'boolean',
  keyframe: () => true,
  pause: ({ isPaused }) => typeof isPaused === 'boolean',
  bitrate: ({ bitsPerSecond }) => Number.isInteger(bitsPerSecond) &&
    bitsPerSecond >= 100_000 && bitsPerSecond <= 300_000_000,
};

/** What a page asks for; null when it is nothing that a page may ask for. */
export function parseRequest(text) {
  try {
    const request = JSON.parse(text);
    return Object.hasOwn(checks, request.type) && checks[request.type](request)
      ? request : null;
  } catch {
    return null;
  }
}
