import { setTimeout as sleep } from 'node:timers/promises';

/**
 * Waits until `condition` returns something truthy and returns that.
 * A test never waits for a fixed time: it waits for what it needs and fails
 * with `what` when that does not come. The limit is for what never comes; a
 * busy machine may take most of it.
 */
export async function until(condition, what, timeoutMs = 60_000) {
  const deadline = performance.now() + timeoutMs;
  for (;;) {
    const value = await condition();
    if (value) return value;
    if (performance.now() >= deadline) {
      throw new Error(`waited ${timeoutMs} ms in vain for ${what}`);
    }
    await sleep(10);
  }
}
