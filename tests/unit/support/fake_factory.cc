#include "support/fake_factory.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace linux_capture {
namespace {

struct FakeElementClassData {
  std::string sinkCaps;
  std::string sourceCaps;
};

void AddTemplate(GstElementClass* elementClass, const char* name,
                 GstPadDirection direction, const std::string& capsText) {
  const GstCapsPtr caps(gst_caps_from_string(capsText.c_str()));
  ASSERT_NE(caps, nullptr) << capsText;
  gst_element_class_add_pad_template(
      elementClass,
      gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps.get()));
}

void InitFakeElementClass(gpointer elementClass, gpointer data) {
  auto* const typed = static_cast<GstElementClass*>(elementClass);
  const auto* const caps = static_cast<const FakeElementClassData*>(data);
  gst_element_class_set_static_metadata(typed, "Fake encoder", "Codec/Encoder",
                                        "Stands in for hardware", "tests");
  AddTemplate(typed, "sink", GST_PAD_SINK, caps->sinkCaps);
  AddTemplate(typed, "src", GST_PAD_SRC, caps->sourceCaps);
}

GType NewFakeElementType(const std::string& sinkCaps,
                         const std::string& sourceCaps) {
  static int count = 0;
  static std::vector<std::unique_ptr<FakeElementClassData>> kept;
  kept.push_back(std::make_unique<FakeElementClassData>(
      FakeElementClassData{sinkCaps, sourceCaps}));
  GTypeInfo info{};
  info.class_size = sizeof(GstElementClass);
  info.class_init = InitFakeElementClass;
  info.class_data = kept.back().get();
  info.instance_size = sizeof(GstElement);
  const std::string name = "LinuxCaptureFakeElement" + std::to_string(count++);
  return g_type_register_static(GST_TYPE_ELEMENT, name.c_str(), &info,
                                static_cast<GTypeFlags>(0));
}

GstPluginFeaturePtr FindFeature(const std::string& name) {
  return GstPluginFeaturePtr(gst_registry_find_feature(
      gst_registry_get(), name.c_str(), GST_TYPE_ELEMENT_FACTORY));
}

void RemoveFeature(const std::string& name) {
  if (const GstPluginFeaturePtr feature = FindFeature(name)) {
    gst_registry_remove_feature(gst_registry_get(), feature.get());
  }
}

}  // namespace

FakeFactory::FakeFactory(const std::string& name)
    : name_(name), installed_(FindFeature(name)) {
  RemoveFeature(name_);
}

FakeFactory::FakeFactory(const std::string& name, const std::string& sinkCaps,
                         const std::string& sourceCaps)
    : FakeFactory(name) {
  EXPECT_TRUE(gst_element_register(nullptr, name.c_str(), GST_RANK_NONE,
                                   NewFakeElementType(sinkCaps, sourceCaps)));
}

FakeFactory::~FakeFactory() {
  RemoveFeature(name_);
  if (installed_) {
    // The registry takes a floating reference or one of its own.
    gst_registry_add_feature(
        gst_registry_get(),
        GST_PLUGIN_FEATURE(gst_object_ref(installed_.get())));
  }
}

}  // namespace linux_capture
