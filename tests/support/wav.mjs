const rate = 48_000;

/** Two channels of 16 bits: `sampleAt` gives the value from -1 to 1. */
export function wavOf({ seconds = 60, hertz, amplitude = 0.25, sampleAt }) {
  const at = sampleAt ??
    ((frame) => amplitude * Math.sin(2 * Math.PI * hertz * frame / rate));
  const frames = Math.round(seconds * rate);
  const samples = new Int16Array(frames * 2);
  for (let frame = 0; frame < frames; frame += 1) {
    const value = Math.max(-32768, Math.min(32767, Math.round(at(frame) *
      32768)));
    samples[2 * frame] = value;
    samples[2 * frame + 1] = value;
  }
  const header = Buffer.alloc(44);
  header.write('RIFF', 0, 'latin1');
  header.writeUInt32LE(36 + samples.byteLength, 4);
  header.write('WAVEfmt ', 8, 'latin1');
  header.writeUInt32LE(16, 16);
  header.writeUInt16LE(1, 20);
  header.writeUInt16LE(2, 22);
  header.writeUInt32LE(rate, 24);
  header.writeUInt32LE(rate * 4, 28);
  header.writeUInt16LE(4, 32);
  header.writeUInt16LE(16, 34);
  header.write('data', 36, 'latin1');
  header.writeUInt32LE(samples.byteLength, 40);
  return Buffer.concat([header, Buffer.from(samples.buffer)]);
}
