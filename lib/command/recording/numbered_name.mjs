import path from 'node:path';

const digits = 3;

/** "out.mp4" as the name of the first, second ... of several: "out-001.mp4". */
export function numberedName(name, number) {
  const { dir, name: base, ext } = path.parse(name);
  return path.join(dir,
    `${base}-${String(number).padStart(digits, '0')}${ext}`);
}
