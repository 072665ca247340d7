/**
 * Which of the numbered pictures that a still screen showed one at a time came
 * only with the source's next sign of life: that one is then right behind them,
 * where it otherwise comes a tenth of a second later. So a busy machine, which
 * delays both, is told from a picture that waits. Missing ones are among them.
 */
export function heldUp(packets, numbers, sent) {
  return sent.filter((number) => {
    const position = numbers.indexOf(number);
    if (position === -1) return true;
    const next = packets[position + 1];
    return next !== undefined &&
      next.enqueuedAtMs - packets[position].enqueuedAtMs < 50;
  });
}
