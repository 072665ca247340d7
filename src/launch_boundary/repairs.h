#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_REPAIRS_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_REPAIRS_H_

#include <gst/gst.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "config/capture_config.h"
#include "launch_boundary/x11_source_check.h"

namespace linux_capture {

// What the launch texts alone get wrong on real machines is put right between
// the text and PLAYING, on the launched elements. Nothing of it shows in the
// reported texts.

enum class PipelineKind : std::uint8_t {
  kX11,         // the software encoders, from an X11 screen
  kScreenCast,  // the software encoders, from PipeWire
  kHardware,    // from PipeWire
  kSound,
};

// What a repair may want to know besides the pipeline itself.
struct RepairContext {
  const CaptureConfig& config;
  // Of X11 sources, where the server could be asked.
  std::optional<X11ScreenSize> screen = std::nullopt;
};

// One thing that is put right. Its reason stands in the header of its name.
class Repair {
 public:
  constexpr Repair(std::string_view name, void (*apply)(GstElement* pipeline))
      : name_(name), applyToPipeline_(apply) {}
  constexpr Repair(std::string_view name,
                   void (*apply)(GstElement* pipeline,
                                 const RepairContext& context))
      : name_(name), applyInContext_(apply) {}

  [[nodiscard]] std::string_view name() const { return name_; }
  void Apply(GstElement* pipeline, const RepairContext& context) const;

 private:
  std::string_view name_;
  void (*applyToPipeline_)(GstElement*) = nullptr;
  void (*applyInContext_)(GstElement*, const RepairContext&) = nullptr;
};

// In the order in which they are applied.
std::span<const Repair> RepairsFor(PipelineKind kind);

// Applies them all to a launched pipeline in the NULL state. Throws
// CodedError where a source cannot be captured.
void ApplyRepairs(GstElement* pipeline, PipelineKind kind,
                  const RepairContext& context);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_REPAIRS_H_
