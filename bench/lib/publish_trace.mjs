// Notes where a packet is on its way through the publication. It costs time of
// its own, so nothing else is measured meanwhile.
import { createRequire } from 'node:module';
import process from 'node:process';

const require = createRequire(import.meta.url);
const { MediaSender } = require('../../lib/publish/media_sender.js');
const { Pacer } = require('../../lib/publish/pacer.js');
const { Transport } = require('../../lib/publish/transport.js');

const nowNs = () => Number(process.hrtime.bigint());

/**
 * Until the end, which gives { ssrc, sequence, beforeNs, leftNs } of each packet
 * of a picture: how long it took from the call with the picture to the pacer,
 * and when the pacer let it go.
 */
export function traceLatency() {
  const { takePicture } = MediaSender.prototype;
  const { pushPicture } = Pacer.prototype;
  const { send } = Transport.prototype;
  let calledNs = 0;
  const before = new Map();
  const sent = [];
  MediaSender.prototype.takePicture = function traced(packet) {
    calledNs = nowNs();
    return takePicture.call(this, packet);
  };
  Pacer.prototype.pushPicture = function traced(made) {
    before.set(made.packet, nowNs() - calledNs);
    return pushPicture.call(this, made);
  };
  Transport.prototype.send = function traced(packet) {
    const beforeNs = before.get(packet);
    if (beforeNs !== undefined) {
      before.delete(packet);
      sent.push({ ssrc: packet.readUInt32BE(8),
        sequence: packet.readUInt16BE(2), beforeNs, leftNs: nowNs() });
    }
    return send.call(this, packet);
  };
  return {
    end() {
      Object.assign(MediaSender.prototype, { takePicture });
      Object.assign(Pacer.prototype, { pushPicture });
      Object.assign(Transport.prototype, { send });
      return sent;
    },
  };
}
