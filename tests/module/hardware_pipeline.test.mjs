import assert from 'node:assert/strict';
import { before, test } from 'node:test';
import { splitNalUnits } from '../support/annex_b.mjs';
import { probe } from '../support/decode.mjs';
import { hardwareBranches, runHardware } from '../support/hardware.mjs';
import { largestColourError, readNumber } from '../support/picture.mjs';
import {
  checkPacketShape, decodeFlawlessly,
} from '../support/stream_checks.mjs';

let result;
const ofBranch = (index) => result.packets
  .filter(({ branchIndex }) => branchIndex === index);

before(async () => {
  result = await runHardware(`
    const collected = await runCapture(hardwareRequest(),
      { seconds: 2, branchCount: 3 });
    report(collected);
  `);
});

// The rates follow from one reference, 3,000,000 with a cap of 4,000,000: each
// smaller branch gets the share (its pixels a second / the primary's) ^ 0.75,
// here (1/8) ^ 0.75 and (1/48) ^ 0.75.
const launchText =
  'pipewiresrc fd=17 path=42 always-copy=false use-bufferpool=true ' +
  'do-timestamp=true on-disconnect=2 ! ' +
  'video/x-raw(memory:DMABuf) ! glupload ! glcolorconvert ! ' +
  'tee name=videoTee ' +
  'videoTee. ! queue max-size-buffers=4 leaky=downstream ! ' +
  'videorate name=videoRate0 drop-only=true max-rate=30 ! ' +
  'video/x-raw(memory:GLMemory),framerate=30/1 ! glcolorscale ! ' +
  'video/x-raw(memory:GLMemory),format=RGBA,width=640,height=360 ! ' +
  'glcolorconvert ! ' +
  'video/x-raw(memory:GLMemory),format=NV12,width=640,height=360 ! ' +
  'nvh264enc name=videoEncoder0 bitrate=3000 max-bitrate=4000 gop-size=60 ' +
  'bframes=0 cabac=true preset=low-latency-hp zerolatency=true rc-mode=cbr ' +
  'strict-gop=true aud=true repeat-sequence-header=true ! ' +
  'video/x-h264,stream-format=byte-stream,alignment=au ! ' +
  'appsink name=videoSink0 emit-signals=true sync=false max-buffers=4 ' +
  'drop=true ' +
  'videoTee. ! queue max-size-buffers=4 leaky=downstream ! ' +
  'videorate name=videoRate1 drop-only=true max-rate=15 ! ' +
  'video/x-raw(memory:GLMemory),framerate=15/1 ! glcolorscale ! ' +
  'video/x-raw(memory:GLMemory),format=RGBA,width=320,height=180 ! ' +
  'glcolorconvert ! ' +
  'video/x-raw(memory:GLMemory),format=NV12,width=320,height=180 ! ' +
  'nvh264enc name=videoEncoder1 bitrate=630 max-bitrate=840 gop-size=60 ' +
  'bframes=0 cabac=true preset=low-latency-hp zerolatency=true rc-mode=cbr ' +
  'strict-gop=true aud=true repeat-sequence-header=true ! ' +
  'video/x-h264,stream-format=byte-stream,alignment=au ! ' +
  'appsink name=videoSink1 emit-signals=true sync=false max-buffers=4 ' +
  'drop=true ' +
  'videoTee. ! queue max-size-buffers=4 leaky=downstream ! ' +
  'videorate name=videoRate2 drop-only=true max-rate=10 ! ' +
  'video/x-raw(memory:GLMemory),framerate=10/1 ! glcolorscale ! ' +
  'video/x-raw(memory:GLMemory),format=RGBA,width=160,height=90 ! ' +
  'glcolorconvert ! ' +
  'video/x-raw(memory:GLMemory),format=NV12,width=160,height=90 ! ' +
  'nvh264enc name=videoEncoder2 bitrate=164 max-bitrate=219 gop-size=60 ' +
  'bframes=0 cabac=true preset=low-latency-hp zerolatency=true rc-mode=cbr ' +
  'strict-gop=true aud=true repeat-sequence-header=true ! ' +
  'video/x-h264,stream-format=byte-stream,alignment=au ! ' +
  'appsink name=videoSink2 emit-signals=true sync=false max-buffers=4 ' +
  'drop=true ';

test('the launched text is the whole three-branch text', () => {
  assert.equal(result.stats.videoPipeline, launchText);
});

test('the text is launched with nothing left out', () => {
  assert.equal(
    result.stages.some((stage) => stage.startsWith('launch:omitted')), false);
});

test('the setup goes through the stages of the hardware path in order', () => {
  const stages = result.stages.map((stage) => stage.replace(/=.*/, ''));
  const begin = stages.indexOf('captureSetup:mutex-acquired');
  assert.deepEqual(stages.slice(begin, begin + 9), [
    'captureSetup:mutex-acquired',
    'captureSetup:hardware-select:begin',
    'captureSetup:hardware-select:selected',
    'captureSetup:hardware-profile-found encoder',
    'captureSetup:hardware-provider-initialized',
    'captureSetup:hardware-video-pipeline-built',
    'captureSetup:video-pipeline-launch:begin',
    'captureSetup:video-pipeline-launch:complete',
    'captureSetup:video-callbacks-attached',
  ]);
  assert.ok(result.stages.includes(
    'captureSetup:hardware-profile-found encoder=nvh264enc'));
});

test('the report describes the chosen hardware encoder', () => {
  const { stats } = result;
  const expected = {
    capturing: true,
    sourceBackend: 'portal',
    selectedProvider: 'gstreamer-nvh264enc',
    encoderProvider: 'nvh264enc',
    selectedEncoder: 'gstreamer-nvh264enc',
    providerTier: 'hardware-simulcast-fps',
    isHardwareEncoder: true,
    isDegradedCpuFallback: false,
    hardwareTransportSatisfied: true,
    hardwareSimulcastFpsSatisfied: true,
    dmaBufNegotiated: true,
    hardwareParityMode: 'simulcast-fps-presets',
    sourceMemoryFeature: 'DMABuf',
    encoderInputMemoryFeature: 'GLMemory',
    temporalMetadataSource: 'synthetic-l1t3-simulcast-dto',
    cpuMappedFrameCount: 0,
    width: 640,
    height: 360,
    gstBusErrors: 0,
    lastGstBusError: '',
    openH264Errors: 0,
    lastOpenH264Error: '',
  };
  assert.deepEqual(
    Object.fromEntries(Object.keys(expected).map((key) => [key, stats[key]])),
    expected);
  assert.match(stats.videoCaps,
    /^video\/x-h264,.*stream-format=\(string\)byte-stream/);
  assert.match(stats.videoCaps, /alignment=\(string\)au/);
});

for (const branch of hardwareBranches) {
  const { branchIndex, width, height, fps } = branch;
  const name = `branch ${branchIndex}, ${width}x${height} at ${fps}`;

  test(`${name}: every packet decodes to a picture of the source`, async () => {
    const packets = ofBranch(branchIndex);
    assert.ok(packets.length > 2, `${packets.length} packets`);
    checkPacketShape(packets, branch);
    assert.equal(packets[0].isKeyFrame, true);
    const pictures = await decodeFlawlessly(packets);
    const numbers = pictures.map((picture) => readNumber(picture));
    assert.equal(numbers.includes(null), false, `${numbers}`);
    numbers.slice(1).forEach((number, index) =>
      assert.ok(number > numbers[index], `${numbers}`));
    const errors = pictures.map(largestColourError);
    assert.ok(Math.max(...errors) <= 12, `${errors}`);
  });

  test(`${name}: the stream has its size and its encoder's settings`,
    async () => {
      const packets = ofBranch(branchIndex);
      const { stream } = await probe(packets);
      assert.equal(stream.codec_name, 'h264');
      assert.equal(stream.profile, 'Main', 'CABAC was asked for');
      assert.equal(stream.width, width);
      assert.equal(stream.height, height);
      const accessUnitDelimiter = 9;
      for (const { payload } of packets) {
        assert.equal(splitNalUnits(payload)[0].type, accessUnitDelimiter);
      }
    });

  // How many of them there are is a matter of the machine: drawing without a
  // graphics card, a busy one leaves pictures out.
  test(`${name}: pictures come no faster than the branch's rate`, () => {
    const packets = ofBranch(branchIndex);
    const period = 1e6 / fps;
    for (const { durationUs } of packets) {
      assert.ok(Math.abs(durationUs - period) <= 1, `${durationUs}`);
    }
    const times = packets.map(({ timestampUs }) => timestampUs);
    times.slice(1).forEach((time, index) =>
      assert.ok(time > times[index], `${times}`));
    // One more than fits: what a late picture left is caught up with.
    const room = (times.at(-1) - times[0]) / period + 2;
    assert.ok(packets.length <= room, `${times}`);
  });

  test(`${name}: timestamps are on the session's clock`, () => {
    result.packets.forEach((packet, position) => {
      if (packet.branchIndex !== branchIndex) return;
      const age = result.arrivalsUs[position] -
        result.stats.sessionClockOriginUs - packet.timestampUs;
      // The first picture waits until its programs for graphics are compiled.
      assert.ok(age > -1e6 / fps && age < 10e6, `packet is ${age} us old`);
    });
  });
}

test('the capture starts and stops with one event each', () => {
  assert.deepEqual(
    result.events.map(({ state, reason }) => [state, reason]), [
      ['ready', 'linux-pipewire-capture-started'],
      ['stopped', 'stopCapture'],
    ]);
});
