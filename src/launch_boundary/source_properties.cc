#include "launch_boundary/source_properties.h"

#include <algorithm>
#include <array>

#include "base/gst_handles.h"
#include "base/stage_log.h"

namespace linux_capture {
namespace {

constexpr std::string_view kSourceElement = "pipewiresrc ";
constexpr std::string_view kElementEnd = " !";
constexpr std::array<std::string_view, 3> kOptionalSourceProperties = {
    "always-copy", "use-bufferpool", "on-disconnect"};

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

}  // namespace linux_capture
