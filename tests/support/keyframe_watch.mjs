import senders from '../../lib/publish/media_sender.js';
import transports from '../../lib/publish/transport.js';

/** The number of the stream whose keyframe ends with this packet, or null. */
function keyframeEnd(packet) {
  if ((packet[0] & 0x10) === 0 || (packet[1] & 0x80) === 0) return null;
  const payload =
    packet.subarray(16 + 4 * packet.readUInt16BE(14), packet.length);
  const kind = payload[0] & 31;
  return (kind === 28 ? payload[1] & 31 : kind) === 5
    ? packet.readUInt32BE(8) : null;
}

/**
 * Looks at what a publication is asked for and sends. Each request that comes
 * while none is open is { quietMs, lateBy, sentAfterMs }: how long ago the last
 * keyframe was, by branch how many pictures were captured after the request and
 * came before the keyframe, and by stream when that was on its way.
 */
export function watchKeyframes(mock, nowUs) {
  const requests = [];
  let lastKeyframeMs = Number.NEGATIVE_INFINITY;
  const { takeReports, takePicture } = senders.MediaSender.prototype;
  mock.method(senders.MediaSender.prototype, 'takeReports',
    function watchReports(datagram) {
      const { keyframeRequests } = this;
      const atUs = nowUs();
      takeReports.call(this, datagram);
      const open = requests.at(-1);
      if (this.keyframeRequests > keyframeRequests &&
          (open === undefined || open.lateBy.every((each) => each.isDone))) {
        requests.push({
          atUs,
          atMs: performance.now(),
          quietMs: performance.now() - lastKeyframeMs,
          lateBy: this.branches.map(() => ({ pictures: 0, isDone: false })),
          sentAfterMs: new Map(),
        });
      }
    });
  mock.method(senders.MediaSender.prototype, 'takePicture',
    function watchPictures(packet) {
      if (packet.isKeyframe) lastKeyframeMs = performance.now();
      const late = requests.at(-1)?.lateBy[packet.branch];
      if (late && !late.isDone) {
        if (packet.isKeyframe) late.isDone = true;
        else if (packet.timestampUs > requests.at(-1).atUs) late.pictures += 1;
      }
      return takePicture.call(this, packet);
    });
  const { send } = transports.Transport.prototype;
  mock.method(transports.Transport.prototype, 'send',
    function watchPackets(packet) {
      const request = requests.at(-1);
      const ssrc = request === undefined ? null : keyframeEnd(packet);
      if (ssrc !== null && !request.sentAfterMs.has(ssrc)) {
        request.sentAfterMs.set(ssrc, performance.now() - request.atMs);
      }
      return send.call(this, packet);
    });
  return {
    requests,
    /** How long ago the last keyframe of any branch came. */
    quietMs: () => performance.now() - lastKeyframeMs,
    isDone: () =>
      requests.at(-1)?.lateBy.every(({ isDone }) => isDone) ?? true,
  };
}
