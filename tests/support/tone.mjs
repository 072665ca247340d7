const rate = 48_000;
const tenth = rate / 10;
// A lost packet or one silence turns the tone by more than that.
const mostOff = 0.02;

/** How far the left channel of a tenth is from any sine of that pitch. */
function distanceFromTone(samples, begin, hertz) {
  let sine = 0;
  let cosine = 0;
  let power = 0;
  for (let i = 0; i < tenth; i += 1) {
    const value = samples[2 * (begin + i)] / 32768;
    const angle = 2 * Math.PI * hertz * i / rate;
    sine += value * Math.sin(angle);
    cosine += value * Math.cos(angle);
    power += value * value;
  }
  const explained = 2 * (sine * sine + cosine * cosine) / tenth;
  return power === 0 ? 1 : Math.max(0, 1 - explained / power);
}

/**
 * In how many tenths of a second, counted from the first sound on, two channels
 * of samples hold anything but one steady tone, and how often that begins.
 */
export function damagedTenths(samples, hertz) {
  const frames = samples.length >> 1;
  let first = 0;
  while (first < frames && samples[2 * first] === 0) first += 1;
  let damaged = 0;
  let times = 0;
  let all = 0;
  let wasDamaged = false;
  for (let at = first + tenth; at + tenth <= frames; at += tenth) {
    const isDamaged = distanceFromTone(samples, at, hertz) > mostOff;
    all += 1;
    if (isDamaged) damaged += 1;
    if (isDamaged && !wasDamaged) times += 1;
    wasDamaged = isDamaged;
  }
  return { damaged, times, all };
}
