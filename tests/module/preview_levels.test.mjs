import assert from 'node:assert/strict';
import { test } from 'node:test';
import { greeting } from '../../lib/preview/reports.mjs';
import { SourceLevels } from '../../lib/preview/sound_levels.mjs';

/** A source of the session's statistics, without a name unless given. */
const sourceOf = (fields) => ({
  targetObject: 38, processId: 0, applicationName: '', processBinary: '',
  nodeName: '', mediaName: '', samples: 0, lastPeak: 0, magnitudeSum: 0,
  ...fields,
});

const namesOf = (kind, ...sources) => new SourceLevels()
  .read({ sources: sources.map((source) => sourceOf({ kind, ...source })) })
  .map(({ name }) => name);

test('a microphone has the name that its settings show', () => {
  assert.deepEqual(namesOf('microphone',
    { nodeName: 'alsa_input.usb-0001', mediaName: 'Headset' }), ['Headset']);
});

test('an output has the name that its settings show', () => {
  assert.deepEqual(namesOf('system',
    { nodeName: 'alsa_output.pci-0000', mediaName: 'Speakers' },
    { nodeName: 'alsa_output.usb-0001' }),
  ['Speakers', 'alsa_output.usb-0001']);
});

test('a stream has the name of its application before its own', () => {
  assert.deepEqual(namesOf('application',
    { applicationName: 'Music', processBinary: 'player', mediaName: 'A song' },
    { processBinary: 'player', mediaName: 'A song' },
    { nodeName: 'stream', mediaName: 'A song' },
    { processId: 77 }),
  ['Music', 'player', 'stream', 'process 77']);
});

test('what has no name has none, instead of a number', () => {
  assert.deepEqual(namesOf('system', {}), [null]);
  assert.deepEqual(namesOf('application', {}), [null]);
});

test('the mean is that of the samples since the last look', () => {
  const levels = new SourceLevels();
  const read = (fields) =>
    levels.read({ sources: [sourceOf({ kind: 'application', ...fields })] })[0];
  assert.equal(read({ samples: 100, magnitudeSum: 50, lastPeak: 0.9 }).mean,
    0.5);
  const second = read({ samples: 200, magnitudeSum: 60, lastPeak: 0.2 });
  assert.ok(Math.abs(second.mean - 0.1) < 1e-9);
  assert.equal(second.peak, 0.2);
  // Nothing came: what was last loud is over.
  const silent = read({ samples: 200, magnitudeSum: 60, lastPeak: 0.2 });
  assert.deepEqual([silent.mean, silent.peak], [0, 0]);
});

test('what a microphone would hear again is not played', () => {
  const soundOf = (mode, ...kinds) => greeting({
    source: { type: 'window', title: 'A test' },
    branches: [],
    hasAudio: true,
    stats: () => ({
      encoder: { isHardware: false },
      video: { layers: 1, branches: [] },
      audio: { mode, sources: kinds.map((kind) => ({ kind })) },
    }),
  }).sound;
  assert.deepEqual(soundOf('process', 'application'),
    { canListen: true, reason: null });
  assert.match(soundOf('process', 'application', 'microphone').reason,
    /microphone/);
  assert.match(soundOf('system', 'system', 'microphone').reason, /echo/);
});
