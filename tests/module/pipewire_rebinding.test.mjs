import assert from 'node:assert/strict';
import { after, before, describe, test } from 'node:test';
import { addon } from '../support/addon.mjs';
import { collect } from '../support/capture.mjs';
import { readNumber } from '../support/picture.mjs';
import { audioObject, portalRequest, withAudio } from
  '../support/pipewire_requests.mjs';
import { usePipeWire } from '../support/pipewire_session.mjs';
import { startHolder, startPlayer, startVideo } from
  '../support/pipewire_sources.mjs';
import { leftChannel, usualAmplitudeOf } from '../support/spectrum.mjs';
import { checkKeyframes, decodeFlawlessly, keyframePeriod } from
  '../support/stream_checks.mjs';
import { probe } from '../support/decode.mjs';
import { until } from '../support/until.mjs';

const lowHertz = 440;
const highHertz = 1_000;
const fps = 30;
let screen;
let holder;
let low;
let high;
const session = usePipeWire({
  withSink: true,
  async prepare(started) {
    // Slower than the branch, so that every picture of the producer is in the
    // stream several times and a missing one is really missing.
    screen = await startVideo(started, { width: 320, height: 180, fps: 10 });
    holder = await startHolder(started);
    low = await startPlayer(started, { name: 'low', hertz: lowHertz });
    high = await startPlayer(started, { name: 'high', hertz: highHertz });
    return [screen, holder, low, high];
  },
});

function screenRequest() {
  return portalRequest({
    fd: addon.duplicateFdFromPid(holder.pid, holder.fd),
    node: screen.node,
    width: 320,
    height: 180,
    fps,
  });
}

const update = (...args) => addon.updateAudioTargets(...args);
const refusal = (message) => ({ name: 'Error', message });

function pitchesOf(packets) {
  const samples = leftChannel(packets);
  return [
    usualAmplitudeOf(samples, lowHertz),
    usualAmplitudeOf(samples, highHertz),
  ];
}

describe('a move from one application to another', () => {
  let collected;
  let result;
  let before_;
  let after_;
  let packetsBefore;
  let picturesBefore;

  before(async () => {
    collected = collect();
    addon.captureSetup(withAudio(screenRequest(), 'process', [low.serial]));
    await until(() => collected.audio.length > 100 &&
      collected.packets.length > 40, 'sound and pictures', 20_000);
    before_ = addon.getStats();
    packetsBefore = collected.audio.length;
    picturesBefore = collected.packets.length;
    result = update({
      mode: 'process',
      pipeWireTargetObjects: [high.serial],
      pipeWireAudioSources: [{
        pipeWireNodeId: high.node.id,
        pipeWireObjectSerial: high.serial,
        processId: high.child.pid,
        applicationName: 'pw-play',
        processBinary: 'pw-play',
        nodeName: 'high',
        mediaName: 'a tone',
        targetObject: 'high',
      }],
    });
    after_ = addon.getStats();
    await until(() => collected.audio.length > packetsBefore + 150 &&
      collected.packets.length > 100, 'sound and pictures again', 20_000);
    collected.stats = addon.getStats();
    addon.stopCapture();
    await until(() => collected.events.length > 1, 'the end');
  });

  test('returns what is captured now', () => {
    assert.equal(result.audioPipeline, after_.audioPipeline);
    assert.match(result.audioPipeline, new RegExp(
      `pipewiresrc target-object=${high.serial} do-timestamp=true ` +
      'on-disconnect=2 ! tee name=audioSourceTee0 '));
    const { audioPipeline, ...rest } = result;
    assert.deepEqual(rest, {
      mode: 'process',
      pipeWireTargetObjects: [high.serial],
      sources: [{
        sourceIndex: 0,
        pipeWireTargetObject: 0,
        pipeWireNodeId: high.node.id,
        pipeWireObjectSerial: high.serial,
        processId: high.child.pid,
        applicationName: 'pw-play',
        processBinary: 'pw-play',
        nodeName: 'high',
        mediaName: 'a tone',
        targetObject: 'high',
      }],
    });
  });

  test('changes the sound from one pitch to the other', () => {
    const [lowFirst, highFirst] = pitchesOf(
      collected.audio.slice(packetsBefore - 60, packetsBefore));
    const [lowThen, highThen] = pitchesOf(collected.audio.slice(-60));
    assert.ok(Math.abs(lowFirst - 0.25) < 0.02 && highFirst < 0.005);
    assert.ok(Math.abs(highThen - 0.25) < 0.02 && lowThen < 0.005);
  });

  test('leaves video alone: every picture, no keyframe, one stream',
    async () => {
      const packets = collected.ofBranch(0);
      // Half a second around the move: a busy machine may lose one elsewhere.
      const numbers = (await decodeFlawlessly(packets)).map(readNumber)
        .slice(picturesBefore - 5, picturesBefore + 10)
        .filter((number) => number !== null);
      const seen = new Set(numbers);
      for (let number = numbers[0]; number <= numbers.at(-1); number += 1) {
        assert.ok(seen.has(number), `${number} is missing: ${numbers}`);
      }
      const { frames } = await probe(packets);
      checkKeyframes(packets, frames, keyframePeriod(fps, 3));
      assert.deepEqual(collected.events.map(({ state }) => state),
        ['ready', 'stopped']);
    });

  test('keeps the totals and starts the recent values anew', () => {
    for (const key of ['audioSamplesCaptured', 'audioPacketsCaptured',
      'audioBridgeQueuedPackets', 'audioAbsoluteSampleSum',
      'audioNonZeroSamplesCaptured']) {
      assert.ok(after_[key] >= before_[key], key);
      assert.ok(collected.stats[key] > before_[key], key);
    }
    assert.equal(after_.firstAudioTimestampUs, before_.firstAudioTimestampUs);
    const [source] = collected.stats.audioSourceStats;
    assert.equal(collected.stats.audioSourceStats.length, 1);
    assert.equal(source.pipeWireTargetObject, high.serial);
    assert.equal(source.nodeName, 'high');
    assert.ok(source.samplesCaptured < collected.stats.audioSamplesCaptured);
    assert.ok(after_.audioSourceStats[0].packetsCaptured <
      before_.audioSourceStats[0].packetsCaptured);
  });
});

describe('a move that is refused', () => {
  after(() => addon.stopCapture());

  test('without an object', () => {
    for (const args of [[], [1], ['process'], [null], [undefined]]) {
      assert.throws(() => update(...args), {
        name: 'TypeError',
        message: 'updateAudioTargets requires one linuxAudio object',
      });
    }
  });

  test('without a capture', () => {
    assert.throws(() => update(audioObject([low.serial])), refusal(
      'Linux updateAudioTargets requires an active capture pipeline'));
  });

  test('without audio', () => {
    addon.captureSetup(screenRequest());
    assert.throws(() => update(audioObject([low.serial])), refusal(
      'Linux updateAudioTargets requires an active audio pipeline'));
  });

  test('while the whole system is captured', async () => {
    const { audio } = collect();
    addon.captureSetup(withAudio(screenRequest(), 'system',
      [session.sink.serial]));
    assert.throws(() => update(audioObject([low.serial])), refusal(
      'Linux updateAudioTargets is only supported for selected-process audio'));
    await until(() => audio.length > 20, 'sound all the same');
  });

  test('with targets that are no targets, and the old ones play on',
    async () => {
      const { audio } = collect();
      addon.captureSetup(withAudio(screenRequest(), 'process', [low.serial]));
      await until(() => audio.length > 20, 'sound');
      const wrong = {
        'linuxAudio.mode must be "process" for selected-process audio':
          audioObject([high.serial], 'system'),
        'linuxAudio.pipeWireTargetObjects entries must be positive':
          audioObject([0]),
        'linuxAudio.pipeWireTargetObjects entries must be numbers':
          audioObject(['1']),
        ['requested Linux audio is unavailable: ' +
        'no PipeWire target objects were provided']: audioObject([]),
      };
      const { audioPipeline } = addon.getStats();
      for (const [message, argument] of Object.entries(wrong)) {
        assert.throws(() => update(argument), refusal(message));
      }
      assert.equal(addon.getStats().audioPipeline, audioPipeline);
      const count = audio.length;
      await until(() => audio.length > count + 100, 'more sound');
      const [lowNow] = pitchesOf(audio.slice(-50));
      assert.ok(Math.abs(lowNow - 0.25) < 0.02, String(lowNow));
    });
});

test('a move to an application that is gone ends the sound, not the capture',
  async () => {
    const { audio, packets } = collect();
    addon.captureSetup(withAudio(screenRequest(), 'process', [low.serial]));
    await until(() => audio.length > 20, 'sound');
    const begin = performance.now();
    assert.throws(() => update(audioObject([999_999])), refusal(
      'PipeWire target 999999 does not exist'));
    assert.ok(performance.now() - begin < 5_000);

    // The old sound is gone, the new targets stand, video runs on.
    const stats = addon.getStats();
    assert.deepEqual(stats.linuxAudio.pipeWireTargetObjects, [999_999]);
    assert.equal(stats.isCapturing, true);
    assert.deepEqual(stats.audioSourceStats.map(({ packetsCaptured }) =>
      packetsCaptured), [0]);
    const { length } = packets;
    await until(() => packets.length > length + 10, 'more pictures');
    assert.equal(addon.getStats().audioPacketsCaptured,
      stats.audioPacketsCaptured);

    update(audioObject([high.serial]));
    const count = audio.length;
    await until(() => audio.length > count + 100, 'sound again');
    addon.stopCapture();
    const [, highNow] = pitchesOf(audio.slice(-50));
    assert.ok(Math.abs(highNow - 0.25) < 0.02, String(highNow));
  });

test('times of sound never come back, however often it is moved', async () => {
  const { audio } = collect();
  addon.captureSetup(withAudio(screenRequest(), 'process', [low.serial]));
  for (const target of [high, low, high, low, high, low, high, low]) {
    const { length } = audio;
    await until(() => audio.length > length + 10, 'sound');
    update(audioObject([target.serial]));
  }
  const { length } = audio;
  await until(() => audio.length > length + 10, 'sound');
  addon.stopCapture();
  const back = audio.slice(1)
    .map(({ timestampUs, rawPtsUs }, i) =>
      [audio[i].timestampUs, audio[i].rawPtsUs, timestampUs, rawPtsUs])
    .filter(([before_, , after_]) => after_ <= before_);
  assert.deepEqual(back, []);
});
