import { once } from 'node:events';
import { connect } from 'node:net';

// Numbers of the X protocol.
const createWindow = 1;
const mapWindow = 8;
const internAtom = 16;
const changeProperty = 18;
const grabServer = 36;
const getInputFocus = 43;
const backgroundPixel = 2;
const copyFromParent = 0;
const replace = 0;
const append = 2;

// A request can hold 262,140 bytes.
const longestPiece = 65_536;

export const atoms = { STRING: 31, WM_CLASS: 67, WM_NAME: 39 };

function request(code, data, body) {
  const head = Buffer.alloc(4);
  head.writeUInt8(code, 0);
  head.writeUInt8(data, 1);
  head.writeUInt16LE(1 + body.length / 4, 2);
  return Buffer.concat([head, body]);
}

const longs = (...values) => {
  const body = Buffer.alloc(4 * values.length);
  values.forEach((value, i) => body.writeInt32LE(value | 0, 4 * i));
  return body;
};

const shorts = (...values) => {
  const body = Buffer.alloc(2 * values.length);
  values.forEach((value, i) => body.writeInt16LE(value, 2 * i));
  return body;
};

const padded = (bytes) =>
  Buffer.concat([bytes, Buffer.alloc((4 - bytes.length % 4) % 4)]);

/**
 * A client of an X server that says what no well-behaved program says: many
 * windows at once, properties of any type and any bytes, and a grabbed server.
 */
export async function startXClient(display) {
  const socket = connect(`/tmp/.X11-unix/X${display.slice(1)}`);
  await once(socket, 'connect');
  socket.write(Buffer.from([0x6c, 0, 11, 0, 0, 0, 0, 0, 0, 0, 0, 0]));

  /** Exactly so many bytes of what the server says. */
  const read = async (size) => {
    for (;;) {
      const bytes = socket.read(size);
      if (bytes !== null) return bytes;
      if (socket.readableEnded) throw new Error('the X server went away');
      await once(socket, 'readable');
    }
  };
  const setup = await read(8);
  if (setup[0] !== 1) throw new Error('the X server refused the client');
  const told = await read(setup.readUInt16LE(6) * 4);
  const firstId = told.readUInt32LE(4);
  const vendorLength = told.readUInt16LE(16);
  const screens = 32 + vendorLength + (4 - vendorLength % 4) % 4 +
    8 * told[21];
  const root = told.readUInt32LE(screens);

  /** The answer to the last request; errors of earlier ones are left out. */
  const reply = async () => {
    for (;;) {
      const head = await read(32);
      if (head[0] !== 1) continue;
      const more = head.readUInt32LE(4) * 4;
      if (more > 0) await read(more);
      return head;
    }
  };

  let used = 0;
  return {
    root,
    /** Shows a window of one colour; returns its number. */
    createWindow({ width = 16, height = 16, parent = root } = {}) {
      const window = firstId + used;
      used += 1;
      socket.write(Buffer.concat([
        request(createWindow, copyFromParent, Buffer.concat([
          longs(window, parent), shorts(0, 0, width, height, 0, 1),
          longs(copyFromParent, backgroundPixel, 0),
        ])),
        request(mapWindow, 0, longs(window)),
      ]));
      return window;
    },
    async atom(name) {
      const text = Buffer.from(name);
      socket.write(request(internAtom, 0,
        Buffer.concat([shorts(text.length, 0), padded(text)])));
      return (await reply()).readUInt32LE(8);
    },
    /** `format` is 8, 16 or 32, the bits of each element. */
    setProperty(window, property, type, format, bytes) {
      let mode = replace;
      do {
        const piece = bytes.subarray(0, longestPiece);
        bytes = bytes.subarray(longestPiece);
        socket.write(request(changeProperty, mode, Buffer.concat([
          longs(window, property, type), Buffer.from([format, 0, 0, 0]),
          longs(piece.length * 8 / format), padded(piece),
        ])));
        mode = append;
      } while (bytes.length > 0);
    },
    /** No other client is served until this one ends. */
    grab: () => socket.write(request(grabServer, 0, Buffer.alloc(0))),
    /** Resolves when the server has done everything so far. */
    async sync() {
      socket.write(request(getInputFocus, 0, Buffer.alloc(0)));
      await reply();
    },
    stop: () => socket.destroy(),
  };
}
