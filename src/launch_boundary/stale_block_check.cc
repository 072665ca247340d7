#include "launch_boundary/stale_block_check.h"

#include <wels/codec_api.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory>

namespace linux_capture {
namespace {

constexpr int kBlock = 16;
constexpr int kLumaSamples = kCheckedSize * kCheckedSize;
constexpr std::uint8_t kDark = 64;
constexpr std::uint8_t kBright = 200;

struct CheckEncoderDeleter {
  void operator()(ISVCEncoder* encoder) const noexcept {
    encoder->Uninitialize();
    WelsDestroySVCEncoder(encoder);
  }
};
struct CheckDecoderDeleter {
  void operator()(ISVCDecoder* decoder) const noexcept {
    decoder->Uninitialize();
    WelsDestroyDecoder(decoder);
  }
};
using CheckEncoderPtr = std::unique_ptr<ISVCEncoder, CheckEncoderDeleter>;
using CheckDecoderPtr = std::unique_ptr<ISVCDecoder, CheckDecoderDeleter>;

void FillBlock(CheckedPicture& picture, int left, int top) {
  for (int y = top; y < top + kBlock; ++y) {
    std::fill_n(
        picture.begin() + static_cast<std::ptrdiff_t>(y) * kCheckedSize + left,
        kBlock, kBright);
  }
}

// A block that lights up for the third picture alone, which has temporal index
// 1; and another that moves with it and stays, so that the fourth picture is
// predicted from the third, which it is most alike.
std::vector<CheckedPicture> DrawCheckedPictures() {
  std::vector<CheckedPicture> pictures(4);
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    pictures[i].assign(std::size_t{kLumaSamples} * 3 / 2, 128);
    std::fill_n(pictures[i].begin(), kLumaSamples, kDark);
    if (i == 2) FillBlock(pictures[i], 3 * kBlock, 3 * kBlock);
    FillBlock(pictures[i], i < 2 ? 0 : kBlock, 6 * kBlock);
  }
  return pictures;
}

CheckEncoderPtr OpenCheckEncoder() {
  ISVCEncoder* created = nullptr;
  if (WelsCreateSVCEncoder(&created) != 0 || created == nullptr) return nullptr;
  CheckEncoderPtr encoder(created);
  int quiet = WELS_LOG_QUIET;
  encoder->SetOption(ENCODER_OPTION_TRACE_LEVEL, &quiet);
  SEncParamExt parameters{};
  encoder->GetDefaultParams(&parameters);
  parameters.iUsageType = SCREEN_CONTENT_REAL_TIME;
  parameters.iPicWidth = kCheckedSize;
  parameters.iPicHeight = kCheckedSize;
  parameters.iTargetBitrate = 1'000'000;
  parameters.fMaxFrameRate = 30;
  parameters.iRCMode = RC_BITRATE_MODE;
  parameters.bEnableFrameSkip = false;
  parameters.iTemporalLayerNum = 3;
  parameters.iSpatialLayerNum = 1;
  parameters.iMultipleThreadIdc = 1;
  SSpatialLayerConfig& layer = parameters.sSpatialLayers[0];
  layer.iVideoWidth = kCheckedSize;
  layer.iVideoHeight = kCheckedSize;
  layer.fFrameRate = 30;
  layer.iSpatialBitrate = parameters.iTargetBitrate;
  if (encoder->InitializeExt(&parameters) != 0) return nullptr;
  return encoder;
}

CheckDecoderPtr OpenCheckDecoder() {
  ISVCDecoder* created = nullptr;
  if (WelsCreateDecoder(&created) != 0 || created == nullptr) return nullptr;
  CheckDecoderPtr decoder(created);
  int quiet = WELS_LOG_QUIET;
  decoder->SetOption(DECODER_OPTION_TRACE_LEVEL, &quiet);
  SDecodingParam parameters{};
  parameters.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_DEFAULT;
  if (decoder->Initialize(&parameters) != 0) return nullptr;
  return decoder;
}

std::vector<std::uint8_t> EncodeChecked(ISVCEncoder& encoder,
                                        const CheckedPicture& picture,
                                        std::size_t index) {
  SSourcePicture source{};
  source.iColorFormat = videoFormatI420;
  source.iPicWidth = kCheckedSize;
  source.iPicHeight = kCheckedSize;
  source.iStride[0] = kCheckedSize;
  source.iStride[1] = source.iStride[2] = kCheckedSize / 2;
  // The encoder reads the planes where they are and never writes them.
  source.pData[0] = const_cast<std::uint8_t*>(picture.data());
  source.pData[1] = source.pData[0] + kLumaSamples;
  source.pData[2] = source.pData[1] + kLumaSamples / 4;
  source.uiTimeStamp = static_cast<long long>(index) * 33;
  SFrameBSInfo info{};
  std::vector<std::uint8_t> unit;
  if (encoder.EncodeFrame(&source, &info) != 0) return unit;
  for (int i = 0; i < info.iLayerNum; ++i) {
    const SLayerBSInfo& layer = info.sLayerInfo[i];
    const std::uint8_t* begin = layer.pBsBuf;
    for (int nal = 0; nal < layer.iNalCount; ++nal) {
      unit.insert(unit.end(), begin, begin + layer.pNalLengthInByte[nal]);
      begin += layer.pNalLengthInByte[nal];
    }
  }
  return unit;
}

// The luma of the next picture that a player shows; nothing where it shows
// none.
CheckedPicture DecodeChecked(ISVCDecoder& decoder,
                             const std::vector<std::uint8_t>& unit) {
  std::array<unsigned char*, 3> planes{};
  SBufferInfo shown{};
  const SSysMEMBuffer& format = shown.UsrData.sSystemBuffer;
  CheckedPicture picture;
  if (decoder.DecodeFrameNoDelay(unit.data(), static_cast<int>(unit.size()),
                                 planes.data(), &shown) != dsErrorFree ||
      shown.iBufferStatus != 1 || format.iWidth != kCheckedSize ||
      format.iHeight != kCheckedSize) {
    // Untested: every decoder so far shows each of the few pictures at once.
    return picture;
  }
  for (int y = 0; y < kCheckedSize; ++y) {
    const unsigned char* line =
        planes[0] + static_cast<std::ptrdiff_t>(y) * format.iStride[0];
    picture.insert(picture.end(), line, line + kCheckedSize);
  }
  return picture;
}

std::vector<CheckedPicture> CodeByOpenH264(
    const std::vector<CheckedPicture>& pictures) {
  std::vector<CheckedPicture> shown;
  const CheckEncoderPtr encoder = OpenCheckEncoder();
  const CheckDecoderPtr decoder = OpenCheckDecoder();
  if (!encoder || !decoder) return shown;
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    const auto unit = EncodeChecked(*encoder, pictures[i], i);
    if (unit.empty()) break;
    shown.push_back(DecodeChecked(*decoder, unit));
  }
  return shown;
}

// The blocks are far brighter than what is around them, so a stale one is off
// by that and a coarsely coded one is not.
bool ShowsTheSame(const CheckedPicture& shown, const CheckedPicture& drawn) {
  constexpr int kMostOff = (kBright - kDark) / 2;
  return shown.size() >= kLumaSamples &&
         std::equal(shown.begin(), shown.begin() + kLumaSamples, drawn.begin(),
                    [](int a, int b) { return std::abs(a - b) < kMostOff; });
}

}  // namespace

bool LeavesStaleBlocks(const PictureCoder& coder) {
  const std::vector<CheckedPicture> drawn = DrawCheckedPictures();
  const std::vector<CheckedPicture> shown = coder(drawn);
  return !std::equal(shown.begin(), shown.end(), drawn.begin(), drawn.end(),
                     ShowsTheSame);
}

bool InstalledOpenH264LeavesStaleBlocks() {
  static const bool leaves = LeavesStaleBlocks(CodeByOpenH264);
  return leaves;
}

}  // namespace linux_capture
