import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { runInBrowser } from '../support/browser.mjs';
import { useFlashingDesktop } from '../support/recording.mjs';

const desktop = useFlashingDesktop();

// Plays the file for four seconds, looks at the corner that flashes and
// listens, then jumps.
const player = `async () => {
  const within = (seconds, promise) => Promise.race([promise,
    new Promise((_, reject) => setTimeout(
      () => reject(new Error('nothing within ' + seconds + ' s')),
      seconds * 1000))]);
  const happens = (target, name) => within(20, new Promise((resolve, no) => {
    target.addEventListener(name, resolve, { once: true });
    target.addEventListener('error', () => no(
      new Error(name + ': ' + target.error?.message)), { once: true });
  }));
  const video = document.createElement('video');
  document.body.append(video);
  const isReady = happens(video, 'loadeddata');
  video.src = '/file';
  await isReady;
  const audio = new AudioContext();
  const analyser = audio.createAnalyser();
  audio.createMediaElementSource(video).connect(analyser);
  analyser.connect(audio.destination);
  const corner = new OffscreenCanvas(1, 1)
    .getContext('2d', { willReadFrequently: true });
  const samples = new Float32Array(analyser.fftSize);
  const { videoWidth: width, videoHeight: height, duration } = video;
  let flashes = 0;
  let wasBright = true;
  let peak = 0;
  await within(20, video.play());
  const end = performance.now() + 4000;
  while (performance.now() < end && !video.ended) {
    await new Promise((resolve) => setTimeout(resolve, 5));
    corner.drawImage(video, width / 64, height * 31 / 32, 1, 1, 0, 0, 1, 1);
    const isBright = corner.getImageData(0, 0, 1, 1).data
      .every((value) => value > 160);
    if (isBright && !wasBright) flashes += 1;
    wasBright = isBright;
    analyser.getFloatTimeDomainData(samples);
    peak = Math.max(peak, ...samples.map(Math.abs));
  }
  const played = video.currentTime;
  const pictures = video.getVideoPlaybackQuality().totalVideoFrames;
  video.pause();
  const isThere = happens(video, 'seeked');
  video.currentTime = 1;
  await isThere;
  return { width, height, duration, played, pictures, flashes, peak,
    sought: video.currentTime };
}`;

function check({ width, height, played, pictures, flashes, peak, sought }) {
  assert.deepEqual([width, height], [160, 90]);
  assert.ok(played > 2, `played ${played} s`);
  assert.ok(pictures > 30, `${pictures} pictures`);
  assert.ok(flashes >= 2, `${flashes} flashes`);
  assert.ok(peak > 0.05, `the loudest sample is ${peak}`);
  assert.equal(sought, 1);
}

for (const ending of ['mp4', 'mkv']) {
  describe(`.${ending} in Chromium`, () => {
    test('a complete recording plays with picture and sound', async () => {
      const { file, command } =
        desktop.record(`whole.${ending}`, ['--duration', '6']);
      assert.equal((await command.end()).status, 0);
      const result = await runInBrowser(player, file);
      check(result);
      assert.ok(Math.abs(result.duration - 6) < 0.15, `${result.duration} s`);
    });

    test('so does one that was killed', async () => {
      const { file, command } = desktop.record(`killed.${ending}`);
      await command.waitForProgress();
      process.kill(command.innerPid(), 'SIGKILL');
      await command.end();
      check(await runInBrowser(player, file));
    });
  });
}
