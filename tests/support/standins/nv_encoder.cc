#include "nv_encoder.h"

#include <gst/video/video.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include "base/gst_handles.h"
#include "h264_stream.h"
#include "nv_encoder_properties.h"
#include "switches.h"

namespace linux_capture::standins {
namespace {

struct EncoderState {
  NvEncoderProperties properties;
  GstVideoInfo info{};
  std::unique_ptr<H264Stream> stream;
  int pictureCount = 0;
};

struct NvEncoder {
  GstVideoEncoder parent;
  EncoderState state;
};

GstVideoEncoderClass* g_parentClass = nullptr;

EncoderState& StateOf(gpointer object) {
  return static_cast<NvEncoder*>(object)->state;
}

// A picture of any memory, read through system memory.
class ReadablePicture {
 public:
  ReadablePicture(GstVideoInfo* info, GstBuffer* buffer)
      : isMapped_(gst_video_frame_map(&frame_, info, buffer, GST_MAP_READ) !=
                  FALSE) {
    if (!isMapped_) throw std::runtime_error("the picture cannot be read");
  }
  ReadablePicture(const ReadablePicture&) = delete;
  ReadablePicture& operator=(const ReadablePicture&) = delete;
  ~ReadablePicture() { gst_video_frame_unmap(&frame_); }

  [[nodiscard]] const GstVideoFrame& frame() const { return frame_; }

 private:
  GstVideoFrame frame_{};
  bool isMapped_;
};

gboolean Start(GstVideoEncoder* encoder) {
  StateOf(encoder).pictureCount = 0;
  if (!IsSwitchedOn("fail-start")) return TRUE;
  GST_ELEMENT_ERROR(encoder, RESOURCE, OPEN_READ_WRITE,
                    ("The encoder session could not be opened"), (nullptr));
  return FALSE;
}

gboolean Stop(GstVideoEncoder* encoder) {
  StateOf(encoder).stream.reset();
  return TRUE;
}

gboolean SetFormat(GstVideoEncoder* encoder, GstVideoCodecState* input) {
  EncoderState& state = StateOf(encoder);
  state.info = input->info;
  try {
    state.stream =
        std::make_unique<H264Stream>(state.info, SettingsOf(state.properties));
  } catch (const std::exception& error) {
    GST_ELEMENT_ERROR(encoder, LIBRARY, INIT, ("%s", error.what()), (nullptr));
    return FALSE;
  }
  GstCaps* caps = gst_caps_new_simple("video/x-h264", "stream-format",
                                      G_TYPE_STRING, "byte-stream", "alignment",
                                      G_TYPE_STRING, "au", nullptr);
  gst_video_codec_state_unref(
      gst_video_encoder_set_output_state(encoder, caps, input));
  return TRUE;
}

bool Encode(EncoderState& state, GstVideoCodecFrame* frame) {
  const ReadablePicture picture(&state.info, frame->input_buffer);
  state.stream->SetBitrate(SettingsOf(state.properties).bitrate);
  const AccessUnit unit = state.stream->Encode(
      picture.frame(), GST_VIDEO_CODEC_FRAME_IS_FORCE_KEYFRAME(frame));
  frame->output_buffer =
      gst_buffer_new_memdup(unit.bytes.data(), unit.bytes.size());
  return unit.isKeyFrame;
}

GstFlowReturn HandleFrame(GstVideoEncoder* encoder, GstVideoCodecFrame* frame) {
  EncoderState& state = StateOf(encoder);
  try {
    if (++state.pictureCount == SwitchValue("fail-after", 0)) {
      throw std::runtime_error("The encoder session was lost");
    }
    if (Encode(state, frame)) GST_VIDEO_CODEC_FRAME_SET_SYNC_POINT(frame);
  } catch (const std::exception& error) {
    gst_video_codec_frame_unref(frame);
    GST_ELEMENT_ERROR(encoder, STREAM, ENCODE, ("%s", error.what()), (nullptr));
    return GST_FLOW_ERROR;
  }
  return gst_video_encoder_finish_frame(encoder, frame);
}

gboolean HandleSourceEvent(GstVideoEncoder* encoder, GstEvent* event) {
  if (IsSwitchedOn("reject-keyframes") &&
      gst_video_event_is_force_key_unit(event) != FALSE) {
    gst_event_unref(event);
    return FALSE;
  }
  return g_parentClass->src_event(encoder, event);
}

void SetProperty(GObject* object, guint id, const GValue* value,
                 GParamSpec* /*property*/) {
  StoreNvEncoderProperty(StateOf(object).properties, id, value);
}

void HideIfSwitched(GstObject* object, GParamSpec* /*property*/,
                    gpointer /*data*/) {
  const GCharPtr name(gst_object_get_name(object));
  const std::string hidden =
      "videoEncoder" + std::to_string(SwitchValue("hide-encoder", -1));
  if (name && hidden == name.get()) {
    gst_object_set_name(object, ("hidden-" + hidden).c_str());
  }
}

void Finalize(GObject* object) {
  std::destroy_at(&StateOf(object));
  G_OBJECT_CLASS(g_parentClass)->finalize(object);
}

void AddTemplate(GstElementClass* elementClass, const char* name,
                 GstPadDirection direction, const char* capsText) {
  const GstCapsPtr caps(gst_caps_from_string(capsText));
  gst_element_class_add_pad_template(
      elementClass,
      gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps.get()));
}

void InitClass(gpointer klass, gpointer /*data*/) {
  g_parentClass =
      static_cast<GstVideoEncoderClass*>(g_type_class_peek_parent(klass));
  auto* objectClass = static_cast<GObjectClass*>(klass);
  objectClass->set_property = SetProperty;
  objectClass->finalize = Finalize;
  InstallNvEncoderProperties(objectClass);

  auto* elementClass = static_cast<GstElementClass*>(klass);
  gst_element_class_set_static_metadata(
      elementClass, "NVENC H.264 encoder stand-in",
      "Codec/Encoder/Video/Hardware", "Encodes GL memory in software",
      "linux_capture_addon");
  AddTemplate(elementClass, "sink", GST_PAD_SINK,
              IsSwitchedOn("no-glmemory")
                  ? "video/x-raw,format=NV12"
                  : "video/x-raw,format=NV12;"
                    "video/x-raw(memory:GLMemory),format=NV12");
  AddTemplate(elementClass, "src", GST_PAD_SRC,
              "video/x-h264,stream-format=byte-stream,alignment=au");

  auto* encoderClass = static_cast<GstVideoEncoderClass*>(klass);
  encoderClass->start = Start;
  encoderClass->stop = Stop;
  encoderClass->set_format = SetFormat;
  encoderClass->handle_frame = HandleFrame;
  encoderClass->src_event = HandleSourceEvent;
}

void InitInstance(GTypeInstance* instance, gpointer /*klass*/) {
  std::construct_at(&StateOf(instance));
  g_signal_connect(instance, "notify::name", G_CALLBACK(HideIfSwitched),
                   nullptr);
}

}  // namespace

GType NvEncoderType() {
  static const GType kType = g_type_register_static_simple(
      GST_TYPE_VIDEO_ENCODER, "StandinNvEncoder", sizeof(GstVideoEncoderClass),
      InitClass, sizeof(NvEncoder), InitInstance, static_cast<GTypeFlags>(0));
  return kType;
}

}  // namespace linux_capture::standins
