const rate = 48_000;

/** The left channel of successive audio packets as one row of samples. */
export function leftChannel(packets) {
  return packets.flatMap(({ samples }) =>
    Array.from({ length: samples.length / 2 }, (_, i) => samples[2 * i]));
}

/**
 * The amplitude of one pitch, in parts of full scale, by Goertzel's method.
 * A window keeps other pitches out of it, however they fall.
 */
export function amplitudeOf(samples, hertz) {
  const step = 2 * Math.PI * hertz / rate;
  const factor = 2 * Math.cos(step);
  let last = 0;
  let beforeLast = 0;
  let windowSum = 0;
  samples.forEach((sample, i) => {
    const window =
      0.5 - 0.5 * Math.cos(2 * Math.PI * (i + 0.5) / samples.length);
    windowSum += window;
    const value = sample / 32768 * window + factor * last - beforeLast;
    beforeLast = last;
    last = value;
  });
  const power = last ** 2 + beforeLast ** 2 - factor * last * beforeLast;
  return 2 * Math.sqrt(Math.max(0, power)) / windowSum;
}

/**
 * The same for what a sound usually is: the middle one of its tenths of a
 * second. On a busy machine some are damaged before they are recorded.
 */
export function usualAmplitudeOf(samples, hertz) {
  const length = rate / 10;
  const amplitudes = [];
  for (let at = 0; at + length <= samples.length; at += length) {
    amplitudes.push(amplitudeOf(samples.slice(at, at + length), hertz));
  }
  return amplitudes.sort((a, b) => a - b)[Math.floor(amplitudes.length / 2)];
}
