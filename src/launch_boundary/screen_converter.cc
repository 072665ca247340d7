#include "launch_boundary/screen_converter.h"

#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>

#include <vector>

#include "base/gst_callback.h"
#include "base/gst_handles.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/colorimetry.h"
#include "launch_boundary/picture_layout.h"
#include "pixels/pixel_routines.h"
#include "pixels/screen_conversion.h"

namespace linux_capture {
namespace {

constexpr const char* kRawVideo = "video/x-raw";
constexpr const char* kConverterCaps = "video/x-raw";
constexpr const char* kScreenFormats =
    "video/x-raw, format=(string){ BGRx, BGRA, RGBx, RGBA, xRGB, ARGB, xBGR, "
    "ABGR }";
constexpr int kBytesOfScreenPixel = 4;

// Fields that a conversion changes.
void RemoveConvertedFields(GstStructure* structure) {
  gst_structure_remove_fields(structure, "format", "colorimetry", "chroma-site",
                              nullptr);
}

bool IsSystemMemory(const GstCaps* caps, guint index) {
  const GstCapsFeatures* features = gst_caps_get_features(caps, index);
  return features == nullptr ||
         gst_caps_features_is_equal(
             features, GST_CAPS_FEATURES_MEMORY_SYSTEM_MEMORY) != FALSE;
}

GstCapsPtr ScreenFormats() {
  return GstCapsPtr(gst_caps_from_string(kScreenFormats));
}

GstCapsPtr ConvertedFormat() {
  return GstCapsPtr(gst_caps_new_simple(kRawVideo, "format", G_TYPE_STRING,
                                        "I420", "colorimetry", G_TYPE_STRING,
                                        kFullRangeBt709, nullptr));
}

// For every structure that has something in common with `from`, one with the
// fields of `to` in its place.
void AppendCounterparts(GstCaps* result, const GstCaps* caps,
                        const GstCaps* from, const GstCaps* to) {
  const GValue* format =
      gst_structure_get_value(gst_caps_get_structure(to, 0), "format");
  const char* colorimetry =
      gst_structure_get_string(gst_caps_get_structure(to, 0), "colorimetry");
  for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
    const GstStructure* structure = gst_caps_get_structure(caps, i);
    if (!IsSystemMemory(caps, i) ||
        gst_structure_can_intersect(structure,
                                    gst_caps_get_structure(from, 0)) == FALSE) {
      continue;
    }
    GstStructure* counterpart = gst_structure_copy(structure);
    RemoveConvertedFields(counterpart);
    gst_structure_set_value(counterpart, "format", format);
    if (colorimetry != nullptr) {
      gst_structure_set(counterpart, "colorimetry", G_TYPE_STRING, colorimetry,
                        nullptr);
    }
    gst_caps_append_structure(result, counterpart);
  }
}

GstCaps* TransformScreenCaps(GstBaseTransform*, GstPadDirection direction,
                             GstCaps* caps, GstCaps* filter) {
  const GstCapsPtr screen = ScreenFormats();
  const GstCapsPtr converted = ConvertedFormat();
  GstCapsPtr result(gst_caps_new_empty());
  if (direction == GST_PAD_SINK) {
    AppendCounterparts(result.get(), caps, screen.get(), converted.get());
  } else {
    AppendCounterparts(result.get(), caps, converted.get(), screen.get());
  }
  gst_caps_append(result.get(), gst_caps_copy(caps));
  if (filter == nullptr) return result.release();
  return gst_caps_intersect_full(filter, result.get(),
                                 GST_CAPS_INTERSECT_FIRST);
}

// Chooses the conversion wherever it is open to choice.
GstCaps* FixateScreenCaps(GstBaseTransform*, GstPadDirection direction,
                          GstCaps* caps, GstCaps* otherCaps) {
  const GstCapsPtr offered(otherCaps);
  if (direction == GST_PAD_SINK) {
    GstVideoInfo info;
    gst_video_info_init(&info);
    const GstCapsPtr converted = ConvertedFormat();
    GstCapsPtr chosen(gst_caps_intersect(offered.get(), converted.get()));
    // A limited range is rare in RGB and left to videoconvert.
    if (gst_video_info_from_caps(&info, caps) != FALSE &&
        info.colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255 &&
        gst_caps_is_empty(chosen.get()) == FALSE) {
      return gst_caps_fixate(chosen.release());
    }
    GstCapsPtr same(gst_caps_intersect(offered.get(), caps));
    if (gst_caps_is_empty(same.get()) == FALSE) {
      return gst_caps_fixate(same.release());
    }
  }
  return gst_caps_fixate(gst_caps_copy(offered.get()));
}

// Of the format alone: where the picture begins in its buffer is another thing.
PixelOrder OrderOf(const GstVideoInfo& info) {
  const auto offset = [&info](guint component) {
    return static_cast<int>(
        GST_VIDEO_FORMAT_INFO_POFFSET(info.finfo, component));
  };
  return {.red = offset(0), .green = offset(1), .blue = offset(2)};
}

gboolean SetConverterInfo(GstVideoFilter*, GstCaps* inCaps, GstVideoInfo* in,
                          GstCaps* outCaps, GstVideoInfo* out) {
  // What is passed on is none of its business.
  if (gst_caps_is_equal(inCaps, outCaps) != FALSE) return TRUE;
  return static_cast<gboolean>(
      GST_VIDEO_INFO_IS_RGB(in) &&
      GST_VIDEO_INFO_COMP_PSTRIDE(in, 0) == kBytesOfScreenPixel &&
      GST_VIDEO_INFO_FORMAT(out) == GST_VIDEO_FORMAT_I420 &&
      in->width == out->width && in->height == out->height);
}

// Not the base class' way: it takes the size of each picture from the picture,
// and has one pass on that it could not read.
GstFlowReturn ConvertScreenBuffer(GstBaseTransform* transform, GstBuffer* in,
                                  GstBuffer* out) {
  const GstVideoFilter* filter = GST_VIDEO_FILTER(transform);
  const PixelRoutines* routines = VectorRoutines();
  if (filter->negotiated == FALSE || routines == nullptr) {
    // Untested: the element is only put in where there are vectors, and its
    // base class hands over what has been agreed on.
    return GST_FLOW_NOT_NEGOTIATED;
  }
  const auto from = LayoutOf(in, filter->in_info);
  const auto to = LayoutOf(out, filter->out_info);
  const ReadableBuffer pixels(in);
  const WritableBuffer planes(out);
  if (!from || !to || !pixels.ok() || !planes.ok()) {
    ReportDroppedPicture(GST_OBJECT(transform), in, filter->in_info);
    return GST_BASE_TRANSFORM_FLOW_DROPPED;
  }
  const auto plane = [&](std::size_t index) {
    return planes.data() + (*to)[index].offset;
  };
  ConvertScreenToI420({.pixels = pixels.data() + (*from)[0].offset,
                       .stride = (*from)[0].stride,
                       .width = filter->in_info.width,
                       .height = filter->in_info.height,
                       .order = OrderOf(filter->in_info)},
                      {.y = plane(0),
                       .u = plane(1),
                       .v = plane(2),
                       .yStride = (*to)[0].stride,
                       .uStride = (*to)[1].stride,
                       .vStride = (*to)[2].stride},
                      *routines);
  return GST_FLOW_OK;
}

// Untested: only there because the base class would work in place without one.
GstFlowReturn RefuseFrame(GstVideoFilter*, GstVideoFrame*, GstVideoFrame*) {
  return GST_FLOW_ERROR;
}

void AddConverterPad(GstElementClass* elementClass, const char* name,
                     GstPadDirection direction) {
  const GstCapsPtr caps(gst_caps_from_string(kConverterCaps));
  gst_element_class_add_pad_template(
      elementClass,
      gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps.get()));
}

void InitScreenConverterClass(gpointer objectClass, gpointer) {
  auto* elementClass = GST_ELEMENT_CLASS(objectClass);
  gst_element_class_set_static_metadata(
      elementClass, "Screen converter", "Filter/Converter/Video",
      "Converts screen pictures to full-range BT.709",
      "linux_capture_addon contributors");
  AddConverterPad(elementClass, "sink", GST_PAD_SINK);
  AddConverterPad(elementClass, "src", GST_PAD_SRC);
  auto* transformClass = GST_BASE_TRANSFORM_CLASS(objectClass);
  transformClass->transform_caps = NoThrow<&TransformScreenCaps>;
  transformClass->fixate_caps = NoThrow<&FixateScreenCaps>;
  transformClass->passthrough_on_same_caps = TRUE;
  transformClass->transform = NoThrow<&ConvertScreenBuffer>;
  auto* filterClass = GST_VIDEO_FILTER_CLASS(objectClass);
  filterClass->set_info = NoThrow<&SetConverterInfo>;
  filterClass->transform_frame = NoThrow<&RefuseFrame>;
}

GType ScreenConverterType() {
  static const GType kType = [] {
    constexpr const char* kName = "LinuxCaptureScreenConverter";
    // Another copy of the module in this process may have been first.
    const GType known = g_type_from_name(kName);
    if (known != 0) return known;
    return g_type_register_static_simple(
        GST_TYPE_VIDEO_FILTER, kName, sizeof(GstVideoFilterClass),
        NoThrow<&InitScreenConverterClass>, sizeof(GstVideoFilter), nullptr,
        GTypeFlags{});
  }();
  return kType;
}

void InsertBefore(GstElement* pipeline, GstElement* element) {
  const GstPadPtr sink(gst_element_get_static_pad(element, "sink"));
  const GstPadPtr source(gst_pad_get_peer(sink.get()));
  GstElement* converter = MakeScreenConverter();
  if (!source || converter == nullptr) return;
  gst_bin_add(GST_BIN(pipeline), converter);
  const GstPadPtr in(gst_element_get_static_pad(converter, "sink"));
  const GstPadPtr out(gst_element_get_static_pad(converter, "src"));
  gst_pad_unlink(source.get(), sink.get());
  if (gst_pad_link(source.get(), in.get()) == GST_PAD_LINK_OK &&
      gst_pad_link(out.get(), sink.get()) == GST_PAD_LINK_OK) {
    return;
  }
  // Untested: pads that were linked can be linked again. Without it the picture
  // is the same, only dearer.
  gst_bin_remove(GST_BIN(pipeline), converter);
  gst_pad_link(source.get(), sink.get());
}

}  // namespace

GstElement* MakeScreenConverter() {
  if (VectorRoutines() == nullptr) return nullptr;
  return GST_ELEMENT(g_object_new(ScreenConverterType(), nullptr));
}

void InsertScreenConverters(GstElement* pipeline) {
  std::vector<GstElementPtr> converters;
  ForEachElementOf(pipeline, "videoconvert", [&](GstElement* element) {
    converters.emplace_back(GST_ELEMENT(gst_object_ref(element)));
  });
  for (const GstElementPtr& element : converters) {
    InsertBefore(pipeline, element.get());
  }
}

}  // namespace linux_capture
