#include "video_software/access_unit.h"

#include <algorithm>

namespace linux_capture {
namespace {

// A layer counts when it has NAL units, their lengths and their bytes.
bool LayerCounts(const SLayerBSInfo& layer) {
  return layer.iNalCount > 0 && layer.pNalLengthInByte != nullptr &&
         layer.pBsBuf != nullptr;
}

std::size_t LayerSize(const SLayerBSInfo& layer) {
  std::size_t size = 0;
  for (int i = 0; i < layer.iNalCount; ++i) {
    const int length = layer.pNalLengthInByte[i];
    if (length > 0) size += static_cast<std::size_t>(length);
  }
  return size;
}

int LayerCount(const SFrameBSInfo& info) {
  return std::clamp(info.iLayerNum, 0, MAX_LAYER_NUM_OF_FRAME);
}

}  // namespace

AccessUnitSummary SummariseAccessUnit(const SFrameBSInfo& info) {
  AccessUnitSummary summary;
  summary.isIdr = info.eFrameType == videoFrameTypeIDR;
  for (int i = 0; i < LayerCount(info); ++i) {
    const SLayerBSInfo& layer = info.sLayerInfo[i];
    if (!LayerCounts(layer)) continue;
    summary.size += LayerSize(layer);
    summary.temporalIndex = std::max(
        summary.temporalIndex, std::min<std::int32_t>(layer.uiTemporalId, 3));
    if (layer.eFrameType == videoFrameTypeIDR) summary.isIdr = true;
  }
  return summary;
}

std::vector<std::uint8_t> JoinAccessUnit(const SFrameBSInfo& info,
                                         std::size_t size) {
  std::vector<std::uint8_t> payload;
  payload.reserve(size);
  for (int i = 0; i < LayerCount(info); ++i) {
    const SLayerBSInfo& layer = info.sLayerInfo[i];
    if (!LayerCounts(layer)) continue;
    payload.insert(payload.end(), layer.pBsBuf,
                   layer.pBsBuf + LayerSize(layer));
  }
  return payload;
}

}  // namespace linux_capture
