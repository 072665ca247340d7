const spsType = 7;

/** The `codec` text of a stream, out of a keyframe in Annex B form. */
export function avcCodec(keyframe) {
  for (let at = keyframe.indexOf('000001', 0, 'hex'); at !== -1;
    at = keyframe.indexOf('000001', at + 3, 'hex')) {
    if ((keyframe[at + 3] & 0x1f) === spsType) {
      return `avc1.${keyframe.toString('hex', at + 4, at + 7)}`;
    }
  }
  throw new Error('the keyframe has no description of its stream');
}
