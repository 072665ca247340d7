#include "launch_boundary/held_ending.h"

#include <memory>
#include <string_view>
#include <utility>

#include "base/gst_callback.h"
#include "base/object_data.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/watched_sources.h"

namespace linux_capture {
namespace {

using SharedEnding = std::shared_ptr<HeldEnding>;

enum class EndingKind : std::uint8_t {
  kOther,
  kFollowing,      // may belong to an ending that has begun
  kFormatLost,     // the source has no format any more
  kFormatRefused,  // it was given another one
};

// The words of the element, which it does not translate.
constexpr std::string_view kRefusal = "unhandled format";

EndingKind KindOfSourceError(GstMessage* message) {
  GError* rawError = nullptr;
  gst_message_parse_error(message, &rawError, nullptr);
  const GErrorPtr error(rawError);
  if (error && std::string_view(error->message).ends_with(kRefusal)) {
    return EndingKind::kFormatRefused;
  }
  const GstStructure* details = nullptr;
  gst_message_parse_error_details(message, &details);
  gint flow = GST_FLOW_OK;
  if (details != nullptr &&
      gst_structure_get_int(details, "flow-return", &flow) != FALSE &&
      flow == GST_FLOW_NOT_NEGOTIATED) {
    return EndingKind::kFormatLost;
  }
  return EndingKind::kFollowing;
}

EndingKind EndingKindOf(GstMessage* message) {
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_EOS:
      return EndingKind::kFollowing;
    case GST_MESSAGE_ERROR: {
      GstObject* source = GST_MESSAGE_SRC(message);
      return GST_IS_ELEMENT(source) &&
                     FactoryNameOf(GST_ELEMENT(source)) == "pipewiresrc"
                 ? KindOfSourceError(message)
                 : EndingKind::kOther;
    }
    default:
      return EndingKind::kOther;
  }
}

GstBusSyncReply HoldEnding(GstBus*, GstMessage* message, gpointer data) {
  HeldEnding& ending = **static_cast<SharedEnding*>(data);
  if (!ending.Take(message, std::chrono::steady_clock::now())) {
    return GST_BUS_PASS;
  }
  // The bus leaves its reference to whoever drops a message.
  gst_message_unref(message);
  return GST_BUS_DROP;
}

}  // namespace

bool HeldEnding::Take(GstMessage* message, Time now) {
  const EndingKind kind = EndingKindOf(message);
  if (kind == EndingKind::kOther) return false;
  const MutexLock lock(mutex_);
  if (phase_ == Phase::kWaiting && kind != EndingKind::kFollowing) {
    phase_ = Phase::kHolding;
    heldSince_ = now;
  }
  if (phase_ == Phase::kWaiting || phase_ == Phase::kReleased) return false;
  if (kind == EndingKind::kFormatRefused) isFormatRefused_ = true;
  if (phase_ != Phase::kHolding) return true;
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
    hasStreamEnded_ = true;
  } else {
    errors_.emplace_back(gst_message_ref(message));
  }
  return true;
}

std::optional<HeldEnding::Time> HeldEnding::heldSince() const {
  const MutexLock lock(mutex_);
  return phase_ == Phase::kHolding ? std::optional(heldSince_) : std::nullopt;
}

bool HeldEnding::isFormatRefused() const {
  const MutexLock lock(mutex_);
  return isFormatRefused_;
}

void HeldEnding::Drop() {
  const MutexLock lock(mutex_);
  phase_ = Phase::kDropping;
  errors_.clear();
}

void HeldEnding::Release(GstElement* pipeline) {
  std::vector<GstMessagePtr> released;
  bool hasEnded = false;
  {
    const MutexLock lock(mutex_);
    phase_ = Phase::kReleased;
    released.swap(errors_);
    hasEnded = hasStreamEnded_;
  }
  // Outside of the lock: each passes Take once more.
  const GstBusPtr bus(gst_element_get_bus(pipeline));
  for (GstMessagePtr& message : released) {
    gst_bus_post(bus.get(), message.release());
  }
  if (hasEnded) {
    gst_bus_post(bus.get(), gst_message_new_eos(GST_OBJECT(pipeline)));
  }
}

void HoldFormatEndings(GstElement* pipeline) {
  SourceWatch* watch = WatchOf(pipeline);
  if (watch == nullptr) return;
  watch->ending = std::make_shared<HeldEnding>();
  const GstBusPtr bus(gst_element_get_bus(pipeline));
  gst_bus_set_sync_handler(
      bus.get(), NoThrow<&HoldEnding>,
      std::make_unique<SharedEnding>(watch->ending).release(),
      NoThrow<&DeleteObjectData<SharedEnding>>);
}

}  // namespace linux_capture
