// What a recording takes of npm packages; see media_library.mjs.
export { registerAacEncoder } from '@mediabunny/aac-encoder';
export {
  AudioSample, AudioSampleSource, EncodedPacket, EncodedVideoPacketSource,
  MkvOutputFormat, Mp4OutputFormat, Output, StreamTarget,
} from 'mediabunny';
