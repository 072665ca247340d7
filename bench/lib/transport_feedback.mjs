// What a receiver says of the packets that arrived (transport-wide congestion
// control, draft-holmer-rmcat-transport-wide-cc-extensions-01).

const tickNs = 250_000;
const referenceNs = 64e6;
const symbolsInChunk = 7;

/** The status of each packet: 0 missing, 1 a small step of time, 2 a large. */
function statusOf(ticks) {
  if (ticks === null) return 0;
  return ticks >= 0 && ticks < 256 ? 1 : 2;
}

/**
 * The report on arrivals, as [{ transport, ns }] in any order and none of them
 * half a round of the numbers away; `round` counts the reports.
 */
export function makeTransportFeedback(arrivals, round) {
  const [{ transport: anchor }] = arrivals;
  const placed = new Map(arrivals.map(({ transport, ns }) =>
    [((transport - anchor + 0x8000) & 0xffff) - 0x8000, ns]));
  const first = Math.min(...placed.keys());
  const count = Math.max(...placed.keys()) - first + 1;
  const reference = Math.floor(placed.get(first) / referenceNs);
  let last = reference * referenceNs;
  const steps = Array.from({ length: count }, (_, index) => {
    const ns = placed.get(first + index);
    if (ns === undefined) return null;
    const ticks = Math.round((ns - last) / tickNs);
    last += ticks * tickNs;
    return ticks;
  });
  const chunks = [];
  for (let at = 0; at < count; at += symbolsInChunk) {
    const statuses = Array.from({ length: symbolsInChunk }, (_, index) =>
      statusOf(steps[at + index] ?? null));
    chunks.push(statuses.reduce((word, status) => word << 2 | status, 3));
  }
  const size = 20 + chunks.length * 2 + steps.reduce((sum, ticks) =>
    sum + statusOf(ticks), 0);
  const report = Buffer.alloc(Math.ceil(size / 4) * 4);
  report[0] = 0x80 | 15;
  report[1] = 205;
  report.writeUInt16BE(report.length / 4 - 1, 2);
  report.writeUInt16BE((anchor + first) & 0xffff, 12);
  report.writeUInt16BE(count, 14);
  report.writeUIntBE(reference & 0xffffff, 16, 3);
  report[19] = round & 0xff;
  let at = 20;
  for (const chunk of chunks) at = report.writeUInt16BE(chunk, at);
  for (const ticks of steps) {
    if (statusOf(ticks) === 1) at = report.writeUInt8(ticks, at);
    if (statusOf(ticks) === 2) at = report.writeInt16BE(ticks, at);
  }
  return report;
}
