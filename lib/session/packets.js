'use strict';

/** One encoded picture of one branch. */
class VideoPacket {
  constructor(packet, timestampUs) {
    this.type = 'video';
    this.branch = packet.branchIndex;
    this.isKeyframe = packet.isKeyFrame;
    this.temporalId = packet.temporalIndex;
    this.timestampUs = timestampUs;
    this.durationUs = packet.durationUs;
    this.width = packet.width;
    this.height = packet.height;
    this.encodedAtMs = packet.enqueuedAtMs;
    this.data = packet.payload;
    // Set by the queue, for the first picture behind a gap.
    this.isAfterGap = false;
  }
}

/** One buffer of sound: interleaved 16-bit samples. */
class AudioPacket {
  constructor(packet, timestampUs) {
    this.type = 'audio';
    this.timestampUs = timestampUs;
    this.durationUs = packet.durationUs;
    this.sampleRate = packet.sampleRate;
    this.channels = packet.channels;
    this.frames = packet.sampleCount / packet.channels;
    this.peak = packet.peakAbsoluteSample / 32_768;
    this.samples = packet.samples;
    this.isAfterGap = false;
  }
}

module.exports = { AudioPacket, VideoPacket };
