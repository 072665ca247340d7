// The table of docs/systems.md: one row for each system and processor, replaced
// when that was tested again.

const cellsOf = (line) =>
  line.split('|').slice(1, -1).map((cell) => cell.trim());

const lineOf = (cells) => `| ${cells.join(' | ')} |`;

/** What a count of tests is in the table; without one the cell is left. */
export function cellOf(counts) {
  if (counts === undefined) return undefined;
  const { passed, failed } = counts;
  return failed === 0 ? `yes (${passed})` : `no (${failed} of ${passed + failed})`;
}

/**
 * The text of the page with a row put in, in the place of one for the same system
 * and processor, of which it keeps what was not tested again.
 */
export function addRow(text, row) {
  const lines = text.split('\n');
  const start = lines.findIndex((line) => line.startsWith('| System |'));
  if (start === -1) throw new Error('there is no table to write into');
  const columns = cellsOf(lines[start]);
  for (const name of Object.keys(row)) {
    if (!columns.includes(name)) throw new Error(`no column "${name}"`);
  }
  let end = start + 2;
  while (lines[end]?.startsWith('|')) end += 1;
  const rows = lines.slice(start + 2, end).map(cellsOf);
  const isSame = ([system, processor]) =>
    system === row.System && processor === row.Processor;
  const old = rows.find(isSame);
  const cells = columns.map((name, index) =>
    row[name] ?? old?.[index] ?? 'not tried');
  const others = rows.filter((entry) => !isSame(entry));
  const sorted = [...others, cells].sort((a, b) =>
    a.slice(0, 2).join().localeCompare(b.slice(0, 2).join(), 'en',
      { numeric: true }));
  lines.splice(start + 2, end - start - 2, ...sorted.map(lineOf));
  return lines.join('\n');
}
