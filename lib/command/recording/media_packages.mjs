// What a recording takes of npm packages; see media_library.mjs.
export { registerAacEncoder } from '@mediabunny/aac-encoder';
export {
  AudioSample, AudioSampleSource, CustomAudioEncoder, EncodedPacket,
  EncodedVideoPacketSource, MkvOutputFormat, Mp4OutputFormat, Output,
  StreamTarget, registerEncoder,
} from 'mediabunny';
