import assert from 'node:assert/strict';
import { before, describe, test } from 'node:test';
import { probeFile } from '../support/command.mjs';
import { clickDelays, clicksIn, flashesIn } from
  '../support/recorded_clicks.mjs';
import { addInput, feedInput } from '../support/pipewire.mjs';
import { useFlashingDesktop } from '../support/recording.mjs';

// A flash waits for the next picture, up to 33 ms, or longer on a busy machine.
const toleranceSeconds = 0.1;

const desktop = useFlashingDesktop();

for (const [ending, option] of
  [['mp4', '--system-audio'], ['mkv', '--microphone']]) {
  describe(`a recording with ${option} into .${ending}`, () => {
    before(async () => {
      if (option !== '--microphone') return;
      const { name: input } = await addInput(desktop.session, 'desk');
      await feedInput(desktop.session, { player: 'screen-click', input });
    });

    test('has both in step, from the beginning to the end', async (context) => {
      const { file, command } = desktop.record(`sync.${ending}`,
        [option, '--duration', '8'], { hasSound: false });
      const { status, stderr } = await command.end();
      assert.equal(stderr, '');
      assert.equal(status, 0);
      const { video, audio, seconds, complaints } = await probeFile(file);
      assert.equal(complaints, '');
      assert.deepEqual([video.length, audio.length], [1, 1]);
      assert.equal(audio[0].codec_name, 'aac');
      assert.ok(Math.abs(seconds - 8) < 0.15, `${seconds} s`);
      const clicks = await clicksIn(file);
      // The sound begins a moment after the picture.
      const flashes = (await flashesIn(file))
        .filter((flash) => flash > clicks[0] - 0.5);
      const delays = clickDelays(flashes, clicks);
      context.diagnostic(`clicks after flashes, in milliseconds: ${
        delays.map((delay) => (delay * 1000).toFixed(0)).join(' ')}`);
      assert.ok(flashes.length >= 5, `${flashes.length} flashes`);
      // Those that lack their click on a busy machine are not out of step;
      // where the two are, none is near.
      const far = delays.filter((delay) => Math.abs(delay) >= toleranceSeconds);
      assert.ok(far.length <= delays.length / 2, delays.join(', '));
    });
  });
}
