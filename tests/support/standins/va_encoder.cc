#include "va_encoder.h"

#include "base/gst_handles.h"

namespace linux_capture::standins {
namespace {

void AddTemplate(GstElementClass* elementClass, const char* name,
                 GstPadDirection direction, const char* capsText) {
  const GstCapsPtr caps(gst_caps_from_string(capsText));
  gst_element_class_add_pad_template(
      elementClass,
      gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps.get()));
}

void InitClass(gpointer klass, gpointer /*data*/) {
  auto* elementClass = static_cast<GstElementClass*>(klass);
  gst_element_class_set_static_metadata(
      elementClass, "VA-API H.264 encoder stand-in",
      "Codec/Encoder/Video/Hardware", "Is only probed", "linux_capture_addon");
  AddTemplate(elementClass, "sink", GST_PAD_SINK,
              "video/x-raw(memory:VAMemory),format=NV12;"
              "video/x-raw(memory:DMABuf),format=NV12;"
              "video/x-raw,format=NV12");
  AddTemplate(elementClass, "src", GST_PAD_SRC, "video/x-h264");
}

}  // namespace

GType VaEncoderType() {
  static const GType kType = g_type_register_static_simple(
      GST_TYPE_ELEMENT, "StandinVaEncoder", sizeof(GstElementClass), InitClass,
      sizeof(GstElement), nullptr, static_cast<GTypeFlags>(0));
  return kType;
}

}  // namespace linux_capture::standins
