// The writer of MP4 and Matroska and the encoder of sound. The package brings
// them as one file that scripts/prebuild.mjs makes: as dependencies they would
// put declarations of a browser's types into every project that installs it,
// and ten times their size. A checkout has the npm packages themselves.
import nativeFiles from '../../native_files.js';

export const {
  AudioSample, AudioSampleSource, CustomAudioEncoder, EncodedPacket,
  EncodedVideoPacketSource, MkvOutputFormat, Mp4OutputFormat, Output,
  StreamTarget, registerAacEncoder, registerEncoder,
} = await import(nativeFiles.isCheckout() ? './media_packages.mjs'
  : '../../../prebuilds/media_library.mjs');
