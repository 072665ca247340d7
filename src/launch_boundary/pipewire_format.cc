#include "launch_boundary/pipewire_format.h"

#ifdef LINUX_CAPTURE_HAS_PIPEWIRE

// PipeWire's headers parse by macros in the manner of GNU C.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wpedantic"
#include <spa/param/format-utils.h>
#include <spa/param/video/format-utils.h>
#include <spa/param/video/type-info.h>
#pragma GCC diagnostic pop

#include <string_view>

namespace linux_capture {
namespace {

// What stands behind the last colon of "Spa:Enum:VideoFormat:BGRx", which is
// GStreamer's name for it too.
std::string PixelsOf(spa_video_format format) {
  for (const spa_type_info* type = spa_type_video_format; type->name != nullptr;
       ++type) {
    if (type->type != static_cast<std::uint32_t>(format)) continue;
    const std::string_view name(type->name);
    return std::string(name.substr(name.rfind(':') + 1));
  }
  // Untested: the list of the headers has the format of every producer so far.
  return {};
}

}  // namespace

std::optional<PipeWireVideoFormat> ReadVideoFormat(const spa_pod* param) {
  std::uint32_t media = SPA_MEDIA_TYPE_unknown;
  std::uint32_t kind = SPA_MEDIA_SUBTYPE_unknown;
  spa_video_info_raw info{};
  if (param == nullptr || spa_format_parse(param, &media, &kind) < 0 ||
      media != SPA_MEDIA_TYPE_video || kind != SPA_MEDIA_SUBTYPE_raw ||
      spa_format_video_raw_parse(param, &info) < 0) {
    return std::nullopt;
  }
  return PipeWireVideoFormat{PixelsOf(info.format), info.size.width,
                             info.size.height};
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_HAS_PIPEWIRE
