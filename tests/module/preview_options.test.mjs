import assert from 'node:assert/strict';
import { test } from 'node:test';
import { parsePreview } from '../../lib/command/preview_options.mjs';
import { UsageError } from '../../lib/command/usage.mjs';

const parse = (...args) => parsePreview(args, { DISPLAY: ':0' });

test('captures the monitor of X11 in one branch by default', () => {
  assert.deepEqual(JSON.parse(JSON.stringify(parse())), {
    source: { type: 'monitor' },
    audio: false,
    video: { branches: [], layers: 3, encoder: 'software' },
    port: 0,
    open: false,
    verbose: false,
  });
});

test('takes the source, the sound and the sizes as record does', () => {
  const { source, audio, video } = parse('--window', 'Editor', '--app',
    'player', '--size', '800x600', '--fps', '25', '--bitrate', '2M');
  assert.deepEqual(source, { type: 'window', title: 'Editor' });
  assert.deepEqual(audio, { application: 'player' });
  assert.equal(`${video.width}x${video.height} ${video.fps} ${video.bitrate}`,
    '800x600 25 2000000');
});

test('takes up to two more branches, layers and a port', () => {
  const { video, port } = parse('--branch', '640x360@15', '--branch', '320',
    '--layers', '2', '--port', '8080');
  assert.deepEqual(video.branches, [
    { width: 640, height: 360, fps: 15 }, { width: 320, fps: undefined }]);
  assert.deepEqual([video.layers, port], [2, 8080]);
});

test('has one layer in hardware', () => {
  const { video } = parse('--hardware');
  assert.deepEqual([video.encoder, video.layers], ['hardware', 1]);
});

for (const wrong of [['--port', '65536'], ['--port', 'x'], ['--layers', '4'],
  ['--layers', '0'], ['--branch', '640x'], ['--branch', '640@15@7'],
  ['--branch', '3', '--branch', '2', '--branch', '1'], ['file.mp4'],
  ['--duration', '5'], ['--portal', '--window', 'x']]) {
  test(`refuses ${wrong.join(' ')}`, () => {
    assert.throws(() => parse(...wrong), UsageError);
  });
}
