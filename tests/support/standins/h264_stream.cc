#include "h264_stream.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <stdexcept>

namespace linux_capture::standins {
namespace {

// An access unit delimiter that allows every kind of slice.
constexpr std::array<std::uint8_t, 6> kDelimiter = {0, 0, 0, 1, 0x09, 0xf0};

void DescribeColour(const GstVideoColorimetry& colour,
                    SSpatialLayerConfig& layer) {
  layer.bVideoSignalTypePresent = true;
  layer.uiVideoFormat = 5;  // unspecified
  layer.bFullRange = colour.range == GST_VIDEO_COLOR_RANGE_0_255;
  layer.bColorDescriptionPresent = true;
  layer.uiColorPrimaries = static_cast<unsigned char>(
      gst_video_color_primaries_to_iso(colour.primaries));
  layer.uiTransferCharacteristics = static_cast<unsigned char>(
      gst_video_transfer_function_to_iso(colour.transfer));
  layer.uiColorMatrix =
      static_cast<unsigned char>(gst_video_color_matrix_to_iso(colour.matrix));
}

void Configure(const GstVideoInfo& info, const StreamSettings& settings,
               SEncParamExt& parameters) {
  const float rate =
      static_cast<float>(info.fps_n) / static_cast<float>(info.fps_d);
  parameters.iUsageType = CAMERA_VIDEO_REAL_TIME;
  parameters.iPicWidth = info.width;
  parameters.iPicHeight = info.height;
  parameters.iTargetBitrate = settings.bitrate;
  parameters.iMaxBitrate = UNSPECIFIED_BIT_RATE;
  parameters.iRCMode = RC_BITRATE_MODE;
  parameters.fMaxFrameRate = rate;
  parameters.bEnableFrameSkip = false;
  parameters.iComplexityMode = LOW_COMPLEXITY;
  parameters.uiIntraPeriod = static_cast<unsigned int>(settings.gopSize);
  parameters.iEntropyCodingModeFlag = settings.isCabac ? 1 : 0;
  parameters.bEnableSceneChangeDetect = false;
  parameters.bEnableAdaptiveQuant = false;
  parameters.iMultipleThreadIdc = 1;
  SSpatialLayerConfig& layer = parameters.sSpatialLayers[0];
  layer.iVideoWidth = info.width;
  layer.iVideoHeight = info.height;
  layer.fFrameRate = rate;
  layer.iSpatialBitrate = settings.bitrate;
  layer.iMaxSpatialBitrate = UNSPECIFIED_BIT_RATE;
  layer.uiProfileIdc = settings.isCabac ? PRO_MAIN : PRO_BASELINE;
  layer.sSliceArgument.uiSliceMode = SM_SINGLE_SLICE;
  DescribeColour(info.colorimetry, layer);
}

std::span<const std::uint8_t> Row(const GstVideoFrame& picture,
                                  std::size_t plane, int row) {
  const auto* begin = static_cast<const std::uint8_t*>(picture.data[plane]);
  return {begin + static_cast<std::ptrdiff_t>(row) * picture.info.stride[plane],
          static_cast<std::size_t>(picture.info.width)};
}

}  // namespace

H264Stream::H264Stream(const GstVideoInfo& info, const StreamSettings& settings)
    : bitrate_(settings.bitrate), hasDelimiters_(settings.hasDelimiters) {
  ISVCEncoder* created = nullptr;
  WelsCreateSVCEncoder(&created);
  encoder_.reset(created);
  SEncParamExt parameters{};
  if (!encoder_ || encoder_->GetDefaultParams(&parameters) != 0) {
    throw std::runtime_error("OpenH264 gives no encoder");
  }
  Configure(info, settings, parameters);
  int traceLevel = WELS_LOG_QUIET;
  encoder_->SetOption(ENCODER_OPTION_TRACE_LEVEL, &traceLevel);
  if (encoder_->InitializeExt(&parameters) != 0) {
    throw std::runtime_error("OpenH264 refuses the parameters");
  }
  pixels_.resize(static_cast<std::size_t>(info.width) *
                 static_cast<std::size_t>(info.height) * 3 / 2);
}

H264Stream::~H264Stream() { encoder_->Uninitialize(); }

void H264Stream::SetBitrate(int bitrate) {
  if (bitrate == bitrate_) return;
  bitrate_ = bitrate;
  SBitrateInfo target{SPATIAL_LAYER_ALL, bitrate};
  encoder_->SetOption(ENCODER_OPTION_BITRATE, &target);
}

AccessUnit H264Stream::Encode(const GstVideoFrame& picture, bool forceKey) {
  SSourcePicture source = ToI420(picture);
  if (forceKey) encoder_->ForceIntraFrame(true);
  SFrameBSInfo output{};
  if (encoder_->EncodeFrame(&source, &output) != cmResultSuccess ||
      output.iLayerNum == 0) {
    throw std::runtime_error("OpenH264 gives no picture");
  }
  AccessUnit unit;
  unit.isKeyFrame = output.eFrameType == videoFrameTypeIDR;
  if (hasDelimiters_) unit.bytes.assign(kDelimiter.begin(), kDelimiter.end());
  for (const SLayerBSInfo& layer : std::span(
           output.sLayerInfo, static_cast<std::size_t>(output.iLayerNum))) {
    std::size_t size = 0;
    for (const int length :
         std::span(layer.pNalLengthInByte,
                   static_cast<std::size_t>(layer.iNalCount))) {
      size += static_cast<std::size_t>(length);
    }
    unit.bytes.insert(unit.bytes.end(), layer.pBsBuf, layer.pBsBuf + size);
  }
  return unit;
}

SSourcePicture H264Stream::ToI420(const GstVideoFrame& picture) {
  const int width = picture.info.width;
  const int height = picture.info.height;
  auto luma = pixels_.begin();
  for (int row = 0; row < height; ++row) {
    const auto from = Row(picture, 0, row);
    luma = std::copy(from.begin(), from.end(), luma);
  }
  const auto chromaSize = static_cast<std::ptrdiff_t>(width) * height / 4;
  auto blue = luma;
  auto red = luma + chromaSize;
  for (int row = 0; row < height / 2; ++row) {
    const auto pairs = Row(picture, 1, row);
    for (std::size_t x = 0; x < pairs.size(); x += 2) {
      *blue++ = pairs[x];
      *red++ = pairs[x + 1];
    }
  }
  SSourcePicture source{};
  source.iColorFormat = videoFormatI420;
  source.iPicWidth = width;
  source.iPicHeight = height;
  source.iStride[0] = width;
  source.iStride[1] = width / 2;
  source.iStride[2] = width / 2;
  source.pData[0] = pixels_.data();
  source.pData[1] =
      source.pData[0] + static_cast<std::ptrdiff_t>(width) * height;
  source.pData[2] = source.pData[1] + chromaSize;
  source.uiTimeStamp =
      static_cast<long long>(GST_BUFFER_PTS(picture.buffer) / GST_MSECOND);
  return source;
}

}  // namespace linux_capture::standins
