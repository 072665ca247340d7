const columns = [
  ['branch', (b) => String(b.branch)],
  ['size', (b) => `${b.width}x${b.height}`],
  ['fps', (b) => `${b.fps.toFixed(1)} of ${b.targetFps}`],
  ['frames', (b) => String(b.frames)],
  ['keyframes', (b) => String(b.keyframes)],
  ['kbit/s', (b) => (b.bitsPerSecond / 1000).toFixed(0)],
  ['layers 0/1/2', (b) => b.framesPerLayer.join('/')],
  ['dropped', (b) => String(b.droppedByModule)],
];

/** A table of a report's branches, one line each. */
export function branchTable(branchStats) {
  const rows = [
    columns.map(([title]) => title),
    ...branchStats.map((branch) => columns.map(([, cell]) => cell(branch))),
  ];
  const widths = columns.map((_, i) =>
    Math.max(...rows.map((row) => row[i].length)));
  return rows
    .map((row) => row.map((cell, i) => cell.padStart(widths[i])).join('  '))
    .join('\n');
}

/** One line on how far the capture has come. */
export function progressLine(elapsedSeconds, seconds, frames) {
  return (
    `capturing ${elapsedSeconds.toFixed(1)} of ${seconds.toFixed(1)} s, ` +
    `frames ${frames.join(' + ')}`
  );
}
