// The binary messages from the capture to the page; both sides use this file.

export const kinds = Object.freeze({ video: 1, audio: 2 });

const videoHeader = 24;
const audioHeader = 12;

/** A picture: `capturedAtMs` in milliseconds since 1970, `data` in Annex B. */
export function encodeVideo({
  branch, isKeyframe, temporalId, width, height, timestampUs, capturedAtMs,
  data,
}) {
  const message = new Uint8Array(videoHeader + data.length);
  const view = new DataView(message.buffer);
  view.setUint8(0, kinds.video);
  view.setUint8(1, branch);
  view.setUint8(2, isKeyframe ? 1 : 0);
  view.setUint8(3, temporalId);
  view.setUint16(4, width);
  view.setUint16(6, height);
  view.setFloat64(8, timestampUs);
  view.setFloat64(16, capturedAtMs);
  message.set(data, videoHeader);
  return message;
}

/** Sound: interleaved samples of 16 bits. */
export function encodeAudio({ sampleRate, channels, samples }) {
  const message = new Uint8Array(audioHeader + samples.byteLength);
  const view = new DataView(message.buffer);
  view.setUint8(0, kinds.audio);
  view.setUint8(1, channels);
  view.setUint32(4, sampleRate);
  message.set(new Uint8Array(
    samples.buffer, samples.byteOffset, samples.byteLength), audioHeader);
  return message;
}

/** Reads either from an ArrayBuffer. */
export function decodeMessage(buffer) {
  const view = new DataView(buffer);
  if (view.getUint8(0) === kinds.video) {
    return {
      kind: kinds.video,
      branch: view.getUint8(1),
      isKeyframe: view.getUint8(2) === 1,
      temporalId: view.getUint8(3),
      width: view.getUint16(4),
      height: view.getUint16(6),
      timestampUs: view.getFloat64(8),
      capturedAtMs: view.getFloat64(16),
      data: new Uint8Array(buffer, videoHeader),
    };
  }
  return {
    kind: kinds.audio,
    channels: view.getUint8(1),
    sampleRate: view.getUint32(4),
    samples: new Int16Array(buffer, audioHeader),
  };
}
