import { decodeMessage, kinds } from './wire.mjs';

// The close code for a page more than may watch.
const tryLater = 1013;

/**
 * Connects to the capture. Messages go to the handlers of their names; "lost"
 * is called when the connection has ended, whatever the reason.
 */
export function connect(handlers) {
  const url = new URL('feed', document.baseURI);
  url.protocol = 'ws:';
  const socket = new WebSocket(url);
  socket.binaryType = 'arraybuffer';
  socket.addEventListener('message', ({ data }) => {
    if (typeof data === 'string') {
      const message = JSON.parse(data);
      handlers[message.type](message);
      return;
    }
    const packet = decodeMessage(data);
    handlers[packet.kind === kinds.video ? 'video' : 'audio'](packet);
  });
  socket.addEventListener('close', ({ code, reason }) =>
    handlers.lost({ isTooMany: code === tryLater, reason }));
  return {
    send(message) {
      if (socket.readyState === WebSocket.OPEN) {
        socket.send(JSON.stringify(message));
      }
    },
  };
}
