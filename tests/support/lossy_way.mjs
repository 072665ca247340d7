import dgram from 'node:dgram';
import { once } from 'node:events';

const candidateLine = /^a=candidate:\S+ 1 udp \d+ (\S+) (\d+) typ host.*$/im;

/**
 * A network between the two sides of a connection, in which datagrams get lost:
 * `loss` is the share of them, `isStill` loses all. It stands in the answer in
 * place of the receiver's addresses.
 */
export async function openLossyWay() {
  const front = dgram.createSocket('udp4');
  const back = dgram.createSocket('udp4');
  const way = { loss: 0, isStill: false, lost: 0, passed: 0 };
  let receiver = null;
  let sender = null;
  let seed = 1;
  const isLost = () => {
    seed = (seed * 48_271) % 2_147_483_647;
    const isOne = way.isStill || seed / 2_147_483_647 < way.loss;
    if (isOne) way.lost += 1;
    else way.passed += 1;
    return isOne;
  };
  front.on('message', (bytes, { port, address }) => {
    sender = { port, address };
    if (receiver !== null && !isLost()) {
      back.send(bytes, receiver.port, receiver.address);
    }
  });
  back.on('message', (bytes) => {
    if (sender !== null && !isLost()) {
      front.send(bytes, sender.port, sender.address);
    }
  });
  for (const socket of [front, back]) {
    socket.bind(0, '127.0.0.1');
    await once(socket, 'listening');
    socket.setRecvBufferSize(1 << 21);
  }
  return Object.assign(way, {
    /** The offer without the sender's addresses, which lead around the way. */
    offerOver: (offer) =>
      offer.replace(/^a=(candidate:.*|end-of-candidates)\r\n/gm, ''),
    /** The answer with the way's address for the receiver's. */
    answerOver(answer) {
      const lines = answer.split('\r\n');
      const found = lines.map((line) => candidateLine.exec(line))
        .find((match) => match !== null && /^[\d.]+$/.test(match[1]));
      receiver = { address: found[1], port: Number(found[2]) };
      sender = null;
      return lines.flatMap((line) => {
        if (!line.startsWith('a=candidate:')) return [line];
        if (!line.includes(found[0].slice(2))) return [];
        return [line.replace(` ${found[1]} ${found[2]} `,
          ` 127.0.0.1 ${front.address().port} `)];
      }).join('\r\n');
    },
    close() {
      front.close();
      back.close();
    },
  });
}
