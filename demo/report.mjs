const columns = [
  ['branch', (b) => String(b.branchIndex)],
  ['size', (b) => `${b.width}x${b.height}`],
  ['fps', (b) => `${b.observedFps.toFixed(1)} of ${b.targetFps}`],
  ['frames', (b) => String(b.encodedFrames)],
  ['keyframes', (b) => String(b.keyframes)],
  ['kbit/s', (b) => ((b.byteRate * 8) / 1000).toFixed(0)],
  ['layers 0/1/2', (b) => b.temporalFrameCounts.slice(0, 3).join('/')],
  ['dropped', (b) => String(b.bridgeDroppedPackets)],
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
export function progressLine(elapsedSeconds, seconds, packets) {
  const counts = packets.map((list) => list.length).join(' + ');
  return (
    `capturing ${elapsedSeconds.toFixed(1)} of ${seconds.toFixed(1)} s, ` +
    `frames ${counts}`
  );
}
