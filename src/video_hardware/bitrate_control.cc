#include "video_hardware/bitrate_control.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "base/coded_error.h"
#include "base/gst_handles.h"
#include "state/branch_stats.h"
#include "state/capture_state.h"
#include "video_hardware/bitrate_allocation.h"

namespace linux_capture {
namespace {

// An initialised GValue, released with this object.
class ScopedGValue {
 public:
  explicit ScopedGValue(GType type) noexcept { g_value_init(&value_, type); }
  ScopedGValue(const ScopedGValue&) = delete;
  ScopedGValue& operator=(const ScopedGValue&) = delete;
  ~ScopedGValue() { g_value_unset(&value_); }

  [[nodiscard]] GValue* get() noexcept { return &value_; }

 private:
  GValue value_ = G_VALUE_INIT;
};

// Stores `number` in a value of one of the integer types; false for any other.
bool StoreInteger(GValue* value, std::uint32_t number) {
  if (G_VALUE_HOLDS_UINT(value)) {
    g_value_set_uint(value, number);
  } else if (G_VALUE_HOLDS_INT(value)) {
    constexpr std::uint32_t kMaxInt = std::numeric_limits<std::int32_t>::max();
    g_value_set_int(value, static_cast<gint>(std::min(number, kMaxInt)));
  } else if (G_VALUE_HOLDS_UINT64(value)) {
    g_value_set_uint64(value, number);
  } else if (G_VALUE_HOLDS_INT64(value)) {
    g_value_set_int64(value, number);
  } else {
    return false;
  }
  return true;
}

std::string ObjectNameOf(GstElement* element) {
  const GCharPtr name(gst_object_get_name(GST_OBJECT_CAST(element)));
  return name ? std::string(name.get()) : std::string("<unnamed>");
}

void RequireBitrateControl() REQUIRES(g_mutex) {
  if (!*g_videoPipeline || !g_isCapturing.load()) {
    throw CodedError(error_code::kNoActiveCapture,
                     "Linux setBitrate requires an active capture pipeline");
  }
  const GStreamerHardwareEncoderProfile& profile = *g_activeHardwareProfile;
  if (!g_encoderSelection->hardwareSimulcastFpsSatisfied ||
      profile.bitrateProperty.empty()) {
    throw CodedError(
        error_code::kNotSupported,
        "Linux setBitrate requires active hardware simulcast FPS capture");
  }
  if (profile.maxBitrateProperty.empty() || profile.bitrateDivisor <= 0) {
    throw CodedError(
        error_code::kEncoderFailed,
        "Linux hardware profile is missing runtime bitrate property mapping");
  }
}

void RecordAppliedBitrate(std::int32_t branchIndex, std::uint32_t bitrate) {
  const MutexLock lock(g_hardwareStatsMutex);
  VideoBranchStats* stats = FindHardwareBranchStats(branchIndex);
  if (stats == nullptr) return;
  stats->appliedBitrate = static_cast<std::int32_t>(bitrate);
  stats->appliedMaxBitrate = static_cast<std::int32_t>(bitrate);
}

AppliedBranchBitrate ApplyBranchBitrate(std::int32_t branchIndex,
                                        std::uint32_t bitrate)
    REQUIRES(g_mutex) {
  const GStreamerHardwareEncoderProfile& profile = *g_activeHardwareProfile;
  const std::string name = "videoEncoder" + std::to_string(branchIndex);
  const GstElementPtr encoder = FindElement(g_videoPipeline->get(), name);
  if (!encoder) {
    throw CodedError(
        error_code::kEncoderFailed,
        "Linux setBitrate could not find GStreamer encoder " + name);
  }
  const std::uint32_t units = std::max<std::uint32_t>(
      bitrate / static_cast<std::uint32_t>(profile.bitrateDivisor), 1);
  std::string errorText;
  // The peak equals the target, which keeps the encoder at a constant rate.
  if (!SetGstIntegerProperty(encoder.get(), profile.bitrateProperty, units,
                             errorText) ||
      !SetGstIntegerProperty(encoder.get(), profile.maxBitrateProperty, units,
                             errorText)) {
    throw CodedError(error_code::kEncoderFailed, errorText);
  }
  RecordAppliedBitrate(branchIndex, bitrate);
  return {branchIndex, bitrate, units};
}

}  // namespace

bool SetGstIntegerProperty(GstElement* element, const std::string& property,
                           std::uint32_t value, std::string& errorText) {
  if (element == nullptr) {
    errorText = "GStreamer element is null while setting " + property;
    return false;
  }
  GObject* object = G_OBJECT(element);
  const GParamSpec* specification = g_object_class_find_property(
      G_OBJECT_GET_CLASS(object), property.c_str());
  if (specification == nullptr) {
    errorText = "GStreamer element " + ObjectNameOf(element) +
                " does not expose property " + property;
    return false;
  }
  ScopedGValue converted(specification->value_type);
  if (!StoreInteger(converted.get(), value)) {
    errorText = "GStreamer element " + ObjectNameOf(element) + " property " +
                property + " is not an integer property";
    return false;
  }
  g_object_set_property(object, property.c_str(), converted.get());
  return true;
}

AppliedBitrate SetTotalBitrate(double bitsPerSecond) {
  const CallerLock lock(g_mutex, g_captureCallers);
  RequireBitrateControl();

  const std::vector<VideoBranchConfig>& branches =
      g_activeVideoConfig->branches;
  AppliedBitrate applied;
  applied.requestedBitrate = ClampRequestedBitrate(bitsPerSecond);
  std::vector<std::int32_t> configured;
  configured.reserve(branches.size());
  for (const VideoBranchConfig& branch : branches) {
    configured.push_back(branch.bitrate);
  }
  const std::vector<std::uint32_t> shares =
      AllocateBitrate(configured, applied.requestedBitrate);
  if (shares.size() != branches.size()) {
    // Untested: an allocation gives every branch its share.
    throw CodedError(
        error_code::kEncoderFailed,
        "Linux setBitrate branch allocation did not match active video branch "
        "count");
  }
  for (std::size_t i = 0; i < branches.size(); ++i) {
    applied.branchBitrates.push_back(
        ApplyBranchBitrate(branches[i].branchIndex, shares[i]));
  }
  return applied;
}

}  // namespace linux_capture
