// Which lines say themselves why no test reaches them:
//
//   // Untested: why that is so, on as many lines as it takes.
//
// on lines of its own speaks for the lines below it that nothing has reached,
// as far as the block goes that it stands in, or the one that begins below it.

const beginning = /^\s*\/\/ Untested: /;
const isComment = (line) => /^\s*\/\//.test(line);
const indentOf = (line) => line.search(/\S|$/);

/** The lines from `first` on that a mark with this indent stands before. */
function* linesBelow(lines, first, indent) {
  for (let index = first; index < lines.length; index += 1) {
    const line = lines[index];
    if (line.trim() === '') continue;
    if (indentOf(line) < indent) return;
    yield index + 1;
    // What closes the block that begins below the mark, unless it goes on.
    if (indentOf(line) === indent && index > first &&
      /^\s*[})\]]+[;,]?$/.test(line)) return;
  }
}

/**
 * The lines of a text that marks speak for, by what has been counted of each
 * line, and the marks that speak for none: what they are about is tested.
 */
export function explainedLines(text, counts) {
  const lines = text.split('\n');
  const explained = new Set();
  const idle = [];
  lines.forEach((line, index) => {
    if (!beginning.test(line)) return;
    let first = index + 1;
    while (first < lines.length && isComment(lines[first])) first += 1;
    let isIdle = true;
    for (const number of linesBelow(lines, first, indentOf(line))) {
      const count = counts.get(number);
      if (count > 0) break;
      if (count === 0) {
        explained.add(number);
        isIdle = false;
      }
    }
    if (isIdle) idle.push(index + 1);
  });
  return { explained, idle };
}
