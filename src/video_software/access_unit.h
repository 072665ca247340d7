#ifndef LINUX_CAPTURE_VIDEO_SOFTWARE_ACCESS_UNIT_H_
#define LINUX_CAPTURE_VIDEO_SOFTWARE_ACCESS_UNIT_H_

#include <wels/codec_api.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace linux_capture {

// What an encoder's output amounts to, before its bytes are copied.
struct AccessUnitSummary {
  std::size_t size = 0;            // bytes over all counting layers
  std::int32_t temporalIndex = 0;  // 0 to 3
  bool isIdr = false;
};

AccessUnitSummary SummariseAccessUnit(const SFrameBSInfo& info);

// The bytes of every counting layer in layer order; `size` is the summary's.
std::vector<std::uint8_t> JoinAccessUnit(const SFrameBSInfo& info,
                                         std::size_t size);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_VIDEO_SOFTWARE_ACCESS_UNIT_H_
