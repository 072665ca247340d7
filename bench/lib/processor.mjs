// Processor time and memory of processes and their threads, from /proc.
import { execFileSync } from 'node:child_process';
import { readFileSync, readdirSync } from 'node:fs';

const ticksPerSecond = Number(
  execFileSync('getconf', ['CLK_TCK'], { encoding: 'utf8' }));

/** Processor seconds of one process so far, ended threads included. */
export function processorSeconds(pid) {
  const text = readFileSync(`/proc/${pid}/stat`, 'utf8');
  // The name, in brackets, may hold blanks; the third field follows it.
  const fields = text.slice(text.lastIndexOf(')') + 2).split(' ');
  return (Number(fields[11]) + Number(fields[12])) / ticksPerSecond;
}

/** Processor seconds that the whole machine has been busy, from /proc/stat. */
export function machineSeconds(text = readFileSync('/proc/stat', 'utf8')) {
  const [, user, nice, system, , , irq, softIrq] =
    text.slice(0, text.indexOf('\n')).split(/\s+/).map(Number);
  return (user + nice + system + irq + softIrq) / ticksPerSecond;
}

/** The most memory that a process has had at a time, in bytes. */
export function peakMemory(pid) {
  const text = readFileSync(`/proc/${pid}/status`, 'utf8');
  return Number(/^VmHWM:\s+(\d+) kB$/m.exec(text)[1]) * 1024;
}

export const sumOver = (pids, measure) =>
  pids.reduce((sum, pid) => sum + measure(pid), 0);

/** Seconds and name of every thread of a process, by thread id. */
export function threadSeconds(pid) {
  const threads = new Map();
  for (const id of readdirSync(`/proc/${pid}/task`)) {
    try {
      const folder = `/proc/${pid}/task/${id}`;
      const [ns] = readFileSync(`${folder}/schedstat`, 'utf8').split(' ');
      const name = readFileSync(`${folder}/comm`, 'utf8').trim();
      threads.set(id, { name, seconds: Number(ns) / 1e9 });
    } catch {
      // The thread has ended since the folder was listed.
    }
  }
  return threads;
}
