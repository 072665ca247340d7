#include "launch_boundary/screen_scaler.h"

#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "base/gst_callback.h"
#include "base/gst_handles.h"
#include "base/object_data.h"
#include "base/pipeline_elements.h"
#include "launch_boundary/picture_borders.h"
#include "launch_boundary/picture_layout.h"
#include "pixels/area_scaling.h"
#include "pixels/pixel_routines.h"

namespace linux_capture {
namespace {

constexpr const char* kScreenScalerType = "LinuxCaptureScreenScaler";
constexpr const char* kScalingKey = "linux-capture-scaling";
constexpr const char* kBorderedKey = "linux-capture-bordered";

// What one negotiated pair of sizes needs.
struct PictureScaling {
  AreaScaler luma;
  AreaScaler chroma;
};

PlaneSize SizeOfPlane(const GstVideoInfo* info, guint component) {
  return {.width = GST_VIDEO_INFO_COMP_WIDTH(info, component),
          .height = GST_VIDEO_INFO_COMP_HEIGHT(info, component)};
}

// Else videoscale adds borders.
bool HaveSameShape(const GstVideoInfo* in, const GstVideoInfo* out) {
  gint inWide = 0;
  gint inHigh = 0;
  gint outWide = 0;
  gint outHigh = 0;
  return gst_util_fraction_multiply(in->width, in->height, in->par_n, in->par_d,
                                    &inWide, &inHigh) != FALSE &&
         gst_util_fraction_multiply(out->width, out->height, out->par_n,
                                    out->par_d, &outWide, &outHigh) != FALSE &&
         inWide == outWide && inHigh == outHigh;
}

// Sides are rounded to even numbers, which nobody sees.
constexpr gint64 kRoundingPx = 2;

// The output as it will be seen. Its caps make up for another shape by pixels
// that are not square, of which the encoded stream knows nothing: a window that
// was resized would be stretched.
GstVideoInfo SquarePixels(const GstVideoInfo& in, const GstVideoInfo& out) {
  const gint64 inWide = gint64{in.width} * in.par_n;
  const gint64 inHigh = gint64{in.height} * in.par_d;
  const gint64 tooWide = out.width - (out.height * inWide / inHigh);
  const gint64 tooHigh = out.height - (out.width * inHigh / inWide);
  GstVideoInfo seen = out;
  if (std::max(tooWide, tooHigh) > kRoundingPx) seen.par_n = seen.par_d = 1;
  return seen;
}

bool CanScaleByArea(const GstVideoInfo* in, const GstVideoInfo* out) {
  return GST_VIDEO_INFO_FORMAT(in) == GST_VIDEO_FORMAT_I420 &&
         GST_VIDEO_INFO_FORMAT(out) == GST_VIDEO_FORMAT_I420 &&
         GST_VIDEO_INFO_IS_INTERLACED(in) == FALSE && out->width <= in->width &&
         out->height <= in->height && HaveSameShape(in, out);
}

GstVideoFilterClass* StockClass(GstVideoFilter* filter) {
  return GST_VIDEO_FILTER_CLASS(
      g_type_class_peek_parent(G_OBJECT_GET_CLASS(filter)));
}

gboolean SetScalerInfo(GstVideoFilter* filter, GstCaps* inCaps,
                       GstVideoInfo* in, GstCaps* outCaps, GstVideoInfo* out) {
  std::unique_ptr<PictureScaling> scaling;
  const PixelRoutines* routines = VectorRoutines();
  GstVideoInfo seen = SquarePixels(*in, *out);
  if (routines != nullptr && CanScaleByArea(in, &seen)) {
    scaling = std::make_unique<PictureScaling>(PictureScaling{
        .luma = AreaScaler(SizeOfPlane(in, 0), SizeOfPlane(out, 0), *routines),
        .chroma =
            AreaScaler(SizeOfPlane(in, 1), SizeOfPlane(out, 1), *routines)});
  }
  SetObjectData(filter, kScalingKey, std::move(scaling));
  const auto bordered = AreaBetweenGreyBorders(*in, seen);
  SetObjectData(filter, kBorderedKey,
                bordered ? std::make_unique<PictureArea>(*bordered) : nullptr);
  return StockClass(filter)->set_info(filter, inCaps, in, outCaps, &seen);
}

// A picture that is not what the caps say must not reach the stock code either,
// which believes it.
GstFlowReturn ScaleScreenBuffer(GstBaseTransform* transform, GstBuffer* in,
                                GstBuffer* out) {
  GstVideoFilter* filter = GST_VIDEO_FILTER(transform);
  if (filter->negotiated == FALSE) return GST_FLOW_NOT_NEGOTIATED;
  const auto from = LayoutOf(in, filter->in_info);
  const auto to = LayoutOf(out, filter->out_info);
  auto* const scaling = ObjectData<PictureScaling>(filter, kScalingKey);
  if (from && scaling == nullptr) {
    const GstFlowReturn flow = GST_BASE_TRANSFORM_CLASS(StockClass(filter))
                                   ->transform(transform, in, out);
    const auto* const bordered = ObjectData<PictureArea>(filter, kBorderedKey);
    if (flow == GST_FLOW_OK && bordered != nullptr) {
      BlackenBorders(out, filter->out_info, *bordered);
    }
    return flow;
  }
  const ReadableBuffer pixels(in);
  const WritableBuffer planes(out);
  if (!from || !to || !pixels.ok() || !planes.ok()) {
    ReportDroppedPicture(GST_OBJECT(transform), in, filter->in_info);
    return GST_BASE_TRANSFORM_FLOW_DROPPED;
  }
  for (const std::size_t plane : {0U, 1U, 2U}) {
    AreaScaler& scaler = plane == 0 ? scaling->luma : scaling->chroma;
    scaler.Scale(pixels.data() + (*from)[plane].offset, (*from)[plane].stride,
                 planes.data() + (*to)[plane].offset, (*to)[plane].stride);
  }
  return GST_FLOW_OK;
}

void InitScreenScalerClass(gpointer objectClass, gpointer) {
  auto* filterClass = GST_VIDEO_FILTER_CLASS(objectClass);
  filterClass->set_info = NoThrow<&SetScalerInfo>;
  GST_BASE_TRANSFORM_CLASS(objectClass)->transform =
      NoThrow<&ScaleScreenBuffer>;
}

// A kind of the installed videoscale, whose negotiation it inherits.
GType ScreenScalerType(GType stock) {
  static const GType kType = [stock] {
    // Another copy of the module in this process may have been first.
    const GType known = g_type_from_name(kScreenScalerType);
    if (known != 0) return known;
    GTypeQuery sizes{};
    g_type_query(stock, &sizes);
    return g_type_register_static_simple(
        stock, kScreenScalerType, sizes.class_size,
        NoThrow<&InitScreenScalerClass>, sizes.instance_size, nullptr,
        GTypeFlags{});
  }();
  return kType;
}

GstPadPtr PeerOf(GstElement* element, const char* padName) {
  const GstPadPtr pad(gst_element_get_static_pad(element, padName));
  return GstPadPtr(gst_pad_get_peer(pad.get()));
}

void Replace(GstElement* pipeline, GstElement* stock) {
  const GstPadPtr from = PeerOf(stock, "sink");
  const GstPadPtr to = PeerOf(stock, "src");
  const GstElementPtr owner(GST_ELEMENT_CAST(gst_element_get_parent(stock)));
  if (!from || !to || owner.get() != pipeline ||
      g_type_is_a(G_OBJECT_TYPE(stock), GST_TYPE_VIDEO_FILTER) == FALSE) {
    return;
  }
  const GCharPtr name(gst_element_get_name(stock));
  gint method = 0;
  g_object_get(stock, "method", &method, nullptr);
  const GstElementPtr replacement(GST_ELEMENT(gst_object_ref_sink(
      g_object_new(ScreenScalerType(G_OBJECT_TYPE(stock)), "name", name.get(),
                   "method", method, nullptr))));
  gst_bin_remove(GST_BIN(pipeline), stock);
  gst_bin_add(GST_BIN(pipeline), replacement.get());
  const GstPadPtr sink(gst_element_get_static_pad(replacement.get(), "sink"));
  const GstPadPtr source(gst_element_get_static_pad(replacement.get(), "src"));
  gst_pad_link(from.get(), sink.get());
  gst_pad_link(source.get(), to.get());
}

}  // namespace

void ReplaceScalers(GstElement* pipeline) {
  std::vector<GstElementPtr> scalers;
  ForEachElementOf(pipeline, "videoscale", [&](GstElement* element) {
    scalers.emplace_back(GST_ELEMENT(gst_object_ref(element)));
  });
  for (const GstElementPtr& stock : scalers) Replace(pipeline, stock.get());
}

bool IsVideoScaler(GstElement* element) {
  return FactoryNameOf(element) == "videoscale" ||
         std::string_view(G_OBJECT_TYPE_NAME(element)) == kScreenScalerType;
}

}  // namespace linux_capture
