#include "launch_boundary/launch_boundary.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/gst_handles.h"
#include "base/pipeline_elements.h"
#include "base/stage_log.h"
#include "launch_boundary/buffer_copy.h"
#include "launch_boundary/keepalive.h"
#include "launch_boundary/screen_scaler.h"
#include "launch_boundary/source_timestamps.h"
#include "launch_boundary/source_watch.h"
#include "launch_boundary/videorate_latency.h"

namespace linux_capture {
namespace {

constexpr std::string_view kSourceElement = "pipewiresrc ";
constexpr std::string_view kElementEnd = " !";
constexpr std::array<std::string_view, 3> kOptionalSourceProperties = {
    "always-copy", "use-bufferpool", "on-disconnect"};

// Full range, BT.709 matrix, transfer and primaries, as GStreamer writes it.
constexpr const char* kFullRangeBt709 = "1:3:5:1";

bool InstalledSourceHas(std::string_view property) {
  // Looked up once: the registry does not change under a running process.
  static const std::array<bool, kOptionalSourceProperties.size()> kSupported =
      [] {
        std::array<bool, kOptionalSourceProperties.size()> supported{};
        // Without the element nothing is left out, so that the parser names
        // the element that is missing.
        supported.fill(true);
        const GstElementFactoryPtr factory(
            gst_element_factory_find("pipewiresrc"));
        if (!factory) return supported;
        const GstPluginFeaturePtr loaded(
            gst_plugin_feature_load(GST_PLUGIN_FEATURE(factory.get())));
        if (!loaded) return supported;
        const GTypeClassPtr elementClass(static_cast<GTypeClass*>(
            g_type_class_ref(gst_element_factory_get_element_type(
                GST_ELEMENT_FACTORY(loaded.get())))));
        for (std::size_t i = 0; i < supported.size(); ++i) {
          supported[i] =
              g_object_class_find_property(
                  G_OBJECT_CLASS(elementClass.get()),
                  std::string(kOptionalSourceProperties[i]).c_str()) != nullptr;
        }
        return supported;
      }();
  const auto* found = std::find(kOptionalSourceProperties.begin(),
                                kOptionalSourceProperties.end(), property);
  return found == kOptionalSourceProperties.end() ||
         kSupported[static_cast<std::size_t>(
             found - kOptionalSourceProperties.begin())];
}

// The factory name of the element in front of a one-input element.
std::string UpstreamFactoryName(GstElement* element) {
  const GstPadPtr sink(gst_element_get_static_pad(element, "sink"));
  if (!sink) return {};
  const GstPadPtr peer(gst_pad_get_peer(sink.get()));
  if (!peer) return {};
  const GstElementPtr upstream(gst_pad_get_parent_element(peer.get()));
  if (!upstream) return {};
  return std::string(FactoryNameOf(upstream.get()));
}

// How strictly a caps filter insists on a frame rate.
enum class RatePin : std::uint8_t { kNone, kPreferred, kRequired };

void PinCaps(GstElement* capsFilter, RatePin ratePin, std::int32_t rate) {
  GstCaps* raw = nullptr;
  g_object_get(capsFilter, "caps", &raw, nullptr);
  const GstCapsPtr current(raw);
  GstCapsPtr pinned(gst_caps_copy(current.get()));
  gst_caps_set_simple(pinned.get(), "colorimetry", G_TYPE_STRING,
                      kFullRangeBt709, nullptr);
  if (ratePin != RatePin::kNone) {
    GstCapsPtr anyRate(gst_caps_copy(pinned.get()));
    gst_caps_set_simple(pinned.get(), "framerate", GST_TYPE_FRACTION, rate, 1,
                        nullptr);
    if (ratePin == RatePin::kPreferred) {
      gst_caps_append(pinned.get(), anyRate.release());
    }
  }
  g_object_set(capsFilter, "caps", pinned.get(), nullptr);
}

}  // namespace

std::string OmitSourceProperties(
    const std::string& description,
    const std::function<bool(std::string_view)>& isSupported,
    std::vector<std::string>& omitted) {
  std::string text = description;
  std::size_t at = 0;
  while ((at = text.find(kSourceElement, at)) != std::string::npos) {
    at += kSourceElement.size() - 1;
    for (const std::string_view property : kOptionalSourceProperties) {
      const std::size_t end = text.find(kElementEnd, at);
      std::string assignment(" ");
      assignment.append(property).append("=");
      const std::size_t begin = text.find(assignment, at);
      if (begin == std::string::npos || begin >= end || isSupported(property)) {
        continue;
      }
      const std::size_t valueEnd = text.find(' ', begin + assignment.size());
      text.erase(begin, valueEnd == std::string::npos ? std::string::npos
                                                      : valueEnd - begin);
      if (std::find(omitted.begin(), omitted.end(), property) ==
          omitted.end()) {
        omitted.emplace_back(property);
      }
    }
  }
  return text;
}

std::string OmitUnsupportedSourceProperties(const std::string& description) {
  std::vector<std::string> omitted;
  std::string text =
      OmitSourceProperties(description, InstalledSourceHas, omitted);
  if (!omitted.empty()) {
    std::string stage = "launch:omitted-pipewiresrc-properties=";
    for (std::size_t i = 0; i < omitted.size(); ++i) {
      if (i != 0) stage += ",";
      stage += omitted[i];
    }
    LogCaptureStage(stage);
  }
  return text;
}

void ForbidSourceFallback(GstElement* pipeline) {
  // PipeWire 1.4 answers a missing target with the default sink's monitor or
  // the default camera: a recording of something nobody asked for.
  ForEachElementOf(pipeline, "pipewiresrc", [](GstElement* source) {
    const GstStructurePtr properties(gst_structure_new(
        "props", "node.dont-fallback", G_TYPE_STRING, "true", nullptr));
    g_object_set(source, "stream-properties", properties.get(), nullptr);
  });
  WatchPipeWireSources(pipeline);
}

void PinRawVideo(GstElement* pipeline, const CaptureConfig& config) {
  std::int32_t highestRate = 0;
  for (const VideoBranchConfig& branch : config.branches) {
    highestRate = std::max(highestRate, branch.fps);
  }
  // Left free, the source's rate is negotiated down to a slower branch and the
  // faster ones carry pictures twice. A PipeWire producer may have a rate of
  // its own, or a variable one; only one that leaves the choice is asked.
  const RatePin sourcePin =
      config.backend == "x11" ? RatePin::kRequired : RatePin::kPreferred;
  ForEachElementOf(pipeline, "capsfilter", [&](GstElement* capsFilter) {
    const std::string upstream = UpstreamFactoryName(capsFilter);
    // The encoders write "full range, BT.709" into every stream, while the
    // converter would choose a limited range and, for small pictures, BT.601:
    // every player would show washed-out, shifted colours. One colorimetry
    // all through also spares each scaler a conversion.
    if (upstream == "videoconvert") {
      PinCaps(capsFilter, sourcePin, highestRate);
    }
    if (upstream == "videorate") {
      PinCaps(capsFilter, RatePin::kNone, 0);
    }
  });
  // Left alone, the rate adapter fills the time before the first picture with
  // copies of it, and their times overlap: the first copy carries the time of
  // capture, the next ones earlier times.
  ForEachElementOf(pipeline, "videorate", [](GstElement* videoRate) {
    g_object_set(videoRate, "skip-to-first", TRUE, nullptr);
  });
  // The default looks at four pixels of the source, however many make one of
  // the result: text becomes unreadable in a branch of a quarter of the size.
  ForEachElementOf(pipeline, "videoscale", [](GstElement* scaler) {
    gst_util_set_object_arg(G_OBJECT(scaler), "method", "bilinear2");
  });
  ReplaceScalers(pipeline);
  if (config.backend == "portal") {
    KeepTimestampsSane(pipeline);
    OutliveProducers(pipeline);
    RepeatStillPictures(pipeline);
    DeliverPicturesPromptly(pipeline, kLongestFilledGap);
  } else {
    DeliverPicturesPromptly(pipeline, GST_CLOCK_TIME_NONE);
  }
}

}  // namespace linux_capture
