#include <gst/gst.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "base/gst_handles.h"
#include "video_hardware/bitrate_control.h"

namespace linux_capture {
namespace {

GstElementPtr MakeElement(const char* factory, const char* name) {
  return AdoptElement(GST_ELEMENT(
      gst_object_ref_sink(gst_element_factory_make(factory, name))));
}

template <typename T>
T Property(const GstElementPtr& element, const char* name) {
  T value{};
  g_object_get(element.get(), name, &value, nullptr);
  return value;
}

TEST(SetGstIntegerPropertyTest, UnsignedPropertiesTakeTheValue) {
  const GstElementPtr queue = MakeElement("queue", "anyName");
  std::string errorText;
  EXPECT_TRUE(SetGstIntegerProperty(queue.get(), "max-size-buffers",
                                    4'294'967'295U, errorText));
  EXPECT_EQ(Property<guint>(queue, "max-size-buffers"), 4'294'967'295U);
  EXPECT_EQ(errorText, "");
}

TEST(SetGstIntegerPropertyTest, SignedPropertiesTakeTheValueUpToTheirLimit) {
  const GstElementPtr identity = MakeElement("identity", "anyName");
  std::string errorText;
  EXPECT_TRUE(SetGstIntegerProperty(identity.get(), "error-after",
                                    2'147'483'647U, errorText));
  EXPECT_EQ(Property<gint>(identity, "error-after"), 2'147'483'647);
  EXPECT_TRUE(
      SetGstIntegerProperty(identity.get(), "error-after", 12, errorText));
  EXPECT_EQ(Property<gint>(identity, "error-after"), 12);
  EXPECT_TRUE(SetGstIntegerProperty(identity.get(), "error-after",
                                    4'000'000'000U, errorText));
  EXPECT_EQ(Property<gint>(identity, "error-after"),
            std::numeric_limits<gint>::max());
}

TEST(SetGstIntegerPropertyTest, WideUnsignedPropertiesTakeTheValue) {
  const GstElementPtr queue = MakeElement("queue", "anyName");
  std::string errorText;
  EXPECT_TRUE(SetGstIntegerProperty(queue.get(), "max-size-time",
                                    4'294'967'295U, errorText));
  EXPECT_EQ(Property<guint64>(queue, "max-size-time"), 4'294'967'295U);
}

TEST(SetGstIntegerPropertyTest, WideSignedPropertiesTakeTheValue) {
  const GstElementPtr identity = MakeElement("identity", "anyName");
  std::string errorText;
  EXPECT_TRUE(SetGstIntegerProperty(identity.get(), "ts-offset", 4'294'967'295U,
                                    errorText));
  EXPECT_EQ(Property<gint64>(identity, "ts-offset"), 4'294'967'295);
}

TEST(SetGstIntegerPropertyTest, ANullElementIsReported) {
  std::string errorText;
  EXPECT_FALSE(SetGstIntegerProperty(nullptr, "bitrate", 1, errorText));
  EXPECT_EQ(errorText, "GStreamer element is null while setting bitrate");
}

TEST(SetGstIntegerPropertyTest, AMissingPropertyIsReportedWithTheElement) {
  const GstElementPtr queue = MakeElement("queue", "videoEncoder2");
  std::string errorText;
  EXPECT_FALSE(SetGstIntegerProperty(queue.get(), "bitrate", 1, errorText));
  EXPECT_EQ(errorText,
            "GStreamer element videoEncoder2 does not expose property bitrate");
}

TEST(SetGstIntegerPropertyTest, PropertiesOfOtherTypesAreRefusedAndKept) {
  const GstElementPtr identity = MakeElement("identity", "videoEncoder1");
  std::string errorText;
  for (const char* property : {"silent", "drop-probability", "last-message"}) {
    EXPECT_FALSE(SetGstIntegerProperty(identity.get(), property, 0, errorText));
    EXPECT_EQ(errorText, "GStreamer element videoEncoder1 property " +
                             std::string(property) +
                             " is not an integer property");
  }
  EXPECT_TRUE(Property<gboolean>(identity, "silent"));
}

TEST(SetGstIntegerPropertyTest, AnElementWithoutANameIsCalledUnnamed) {
  const GstElementPtr queue = MakeElement("queue", "anyName");
  // Only memory exhaustion leaves an element without a name by itself.
  g_free(GST_OBJECT_NAME(queue.get()));
  GST_OBJECT_NAME(queue.get()) = nullptr;
  std::string errorText;
  EXPECT_FALSE(SetGstIntegerProperty(queue.get(), "bitrate", 1, errorText));
  EXPECT_EQ(errorText,
            "GStreamer element <unnamed> does not expose property bitrate");
  EXPECT_FALSE(SetGstIntegerProperty(queue.get(), "silent", 1, errorText));
  EXPECT_EQ(errorText,
            "GStreamer element <unnamed> property silent is not an integer "
            "property");
}

}  // namespace
}  // namespace linux_capture
