const kilo = 1000;
const units = ['kB', 'MB', 'GB', 'TB'];

export function clockText(seconds) {
  const whole = Math.floor(seconds);
  const two = (value) => String(value).padStart(2, '0');
  const hours = Math.floor(whole / 3600);
  return `${hours > 0 ? `${hours}:` : ''}${two(Math.floor(whole / 60) % 60)}:${
    two(whole % 60)}`;
}

export function sizeText(bytes) {
  let value = bytes / kilo;
  let unit = 0;
  while (value >= kilo && unit < units.length - 1) {
    value /= kilo;
    unit += 1;
  }
  return `${unit === 0 ? Math.ceil(value) : value.toFixed(1)} ${units[unit]}`;
}
