import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { addon } from '../support/addon.mjs';

const page = readFileSync(
  new URL('../../docs/troubleshooting.md', import.meta.url), 'utf8');
const [, table] = page.split('### The request is refused');
const rows = table.split('\n###')[0].split('\n')
  .filter((line) => line.startsWith('| `'));

/** The row of the page that has the message. */
function rowOf(message) {
  const matched = rows.map((line) => Math.max(
    ...[...line.matchAll(/`([^`]+)`/g)]
      .map(([, text]) => text.split('…').map((part) => part.trim()))
      .map((parts) => (parts.every((part) => message.includes(part))
        ? parts.join('').length : 0))));
  // "… must be a number" says less than "handle must be a number".
  const most = Math.max(...matched);
  assert.notEqual(most, 0, `${message} is in no row`);
  return matched.indexOf(most);
}

/** A request in which everything is wrong, and the cures, one by one. */
const wrong = () => ({
  source: { backend: 'wayland', kind: 'tab', handle: 'x' },
  capture: {
    width: 321, height: 180, fps: 30, bitrate: 1, minBitrate: 1, maxBitrate: 1,
    temporalLayerCount: 1, gopSize: 1, bFrames: 0, enableCABAC: false,
    lowLatencyMode: true, encoderRequirement: 'any',
    topology: { mode: 'none', branches: {} },
  },
  audio: { mode: 'all' },
  linuxAudio: { mode: 'process', pipeWireTargetObjects: {} },
});
const small = { width: 1, height: 90, fps: 15, bitrate: 1 };
const cures = [
  ({ source }) => { source.backend = 'x11'; },
  ({ source }) => { source.kind = 'window'; },
  ({ capture }) => { capture.encoderRequirement = 'allow-degraded'; },
  ({ source }) => { source.handle = 1; },
  ({ audio }) => { audio.mode = 'system'; },
  ({ linuxAudio }) => { linuxAudio.mode = 'system'; },
  ({ linuxAudio }) => { linuxAudio.pipeWireTargetObjects = []; },
  ({ linuxAudio }) => { linuxAudio.pipeWireTargetObjects = [1]; },
  ({ capture }) => { capture.topology.mode = 'topology'; },
];

const refusal = (request) => {
  try {
    addon.captureSetup(request);
  } catch ({ message }) {
    return message;
  }
  return assert.fail('the request was accepted');
};

test('a request is checked in the order of the page', () => {
  const request = wrong();
  const messages = [refusal()];
  for (const cure of [() => {}, ...cures]) {
    cure(request);
    messages.push(refusal(request));
  }
  assert.equal(new Set(messages).size, messages.length, messages.join('\n'));
  const places = messages.map(rowOf);
  assert.deepEqual(places, places.toSorted((a, b) => a - b),
    messages.join('\n'));
});

test('the primary branch is checked before the list of the others', () => {
  const request = wrong();
  for (const cure of cures) cure(request);
  const { capture } = request;
  const found = [refusal(request)];
  capture.width = 320;
  found.push(refusal(request));
  capture.topology.branches = [small, small, small];
  found.push(refusal(request));
  capture.topology.branches = [small, null];
  found.push(refusal(request));
  assert.deepEqual(found, [
    'video branch 0 requires even width and height for H.264',
    'capture.topology.branches must be an array',
    'Linux Wayland parity supports one primary branch and at most two ' +
      'secondary branches',
    'video branch 1 requires even width and height for H.264',
  ]);
});
