import answers from '../../lib/publish/sdp_answer.js';
import offers from '../../lib/publish/sdp_offer.js';
import transports from '../../lib/publish/transport.js';

/**
 * The other side of a connection without a server: a transport of our own that
 * answers. Where it `isIdle` it does nothing more; where it `isWaiting` it waits
 * for a handshake that the other side waits for, too.
 */
export async function openMediaPeer(
  { isIdle = false, isWaiting = false } = {}) {
  const states = [];
  const transport = new transports.Transport({
    onState: (state) => states.push(state), onReport: () => {},
  });
  const local = await transport.open({ servers: [], isServerHere: true });
  return {
    states,
    answer(offer) {
      const { transport: remote } = answers.readAnswer(
        offer.replaceAll('a=sendonly', 'a=recvonly'),
        { extensions: offers.extensions, rids: [], hasAudio: false });
      if (!isIdle) {
        transport.connect(
          { ...remote, setup: isWaiting ? 'active' : 'passive' });
      }
      return [
        'v=0', 'o=- 1 1 IN IP4 0.0.0.0', 's=-', 't=0 0', 'a=group:BUNDLE 0',
        'm=video 9 UDP/TLS/RTP/SAVPF 96', 'c=IN IP4 0.0.0.0', 'a=mid:0',
        `a=ice-ufrag:${local.user}`, `a=ice-pwd:${local.password}`,
        `a=fingerprint:${local.fingerprint}`, 'a=setup:active', 'a=recvonly',
        'a=rtpmap:96 H264/90000', 'a=fmtp:96 packetization-mode=1',
        ...local.candidates.map((line) => `a=${line}`), '',
      ].join('\r\n');
    },
    close: () => transport.close(),
  };
}
