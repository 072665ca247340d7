#include "shot/picture.h"

#include <X11/Xlib.h>
#include <gst/app/gstappsink.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <optional>

#include "base/c_callback.h"
#include "base/coded_error.h"
#include "base/gst_handles.h"
#include "base/gst_init.h"
#include "common/program_error.h"
#include "launch_boundary/picture_check.h"
#include "launch_boundary/picture_crop.h"
#include "launch_boundary/pipeline_launch.h"
#include "launch_boundary/source_fallback.h"
#include "launch_boundary/x11_source_check.h"

namespace linux_capture::shot {
namespace {

using programs::kStatusMissingElement;
using programs::kStatusRefused;
using programs::ProgramError;

[[noreturn]] void EndWith(const char* reason) {
  std::fprintf(stderr, "linux-capture-shot: %s\n", reason);
  _exit(kStatusRefused);
}

// The source does not notice that it was refused a picture, and would deliver
// what its memory held before.
[[noreturn]] int HandleError(Display* /*display*/, XErrorEvent* event) {
  switch (event->error_code) {
    case BadMatch:
      EndWith("the window is hidden or partly off the screen");
    case BadWindow:
    case BadDrawable:
      EndWith("the window was closed");
    default:
      EndWith("the X server refused the picture");
  }
}

[[noreturn]] int HandleIoError(Display* /*display*/) {
  EndWith("the connection to the X server was lost");
}

void RequireSource(const CaptureConfig& source) {
  const std::optional<X11ScreenSize> screen = RequireX11Source(source);
  if (!screen) {
    throw ProgramError(kStatusRefused, "the X display cannot be reached");
  }
  if (source.kind == "window") return;
  // A capture goes on with what is left of its rectangle when the screen
  // becomes smaller. Here nothing can have changed yet.
  if (std::int64_t{source.x} + source.sourceWidth > screen->width ||
      std::int64_t{source.y} + source.sourceHeight > screen->height) {
    throw ProgramError(kStatusRefused,
                       "the rectangle leaves the X11 screen of " +
                           std::to_string(screen->width) + "x" +
                           std::to_string(screen->height));
  }
}

std::string SourceText(const ShotOptions& options) {
  const CaptureConfig& source = options.source;
  if (source.backend == "portal") {
    return "pipewiresrc fd=" + std::to_string(source.pipeWireFd) +
           " path=" + std::to_string(source.pipeWireNodeId) +
           " do-timestamp=true";
  }
  std::string text = "ximagesrc use-damage=false show-pointer=";
  text += options.isPointerShown ? "true" : "false";
  if (source.kind == "window") {
    return text + " xid=" + std::to_string(source.windowHandle);
  }
  return text + " startx=" + std::to_string(source.x) +
         " starty=" + std::to_string(source.y) +
         " endx=" + std::to_string(source.x + source.sourceWidth - 1) +
         " endy=" + std::to_string(source.y + source.sourceHeight - 1);
}

GstElementPtr Launch(const ShotOptions& options) {
  GstElementPtr pipeline = LaunchPipeline(
      SourceText(options) +
      // Where a window is cut out, if it is a part of what is cast.
      " ! queue max-size-buffers=1"
      // Windows may be translucent; what is behind them is not in the picture,
      // and viewers would show something else there.
      " ! videoconvert ! video/x-raw,format=RGB ! pngenc snapshot=true"
      " ! appsink name=sink sync=false");
  ForbidSourceFallback(pipeline.get());
  DropUnreadablePictures(pipeline.get());
  CropToWindows(pipeline.get());
  return pipeline;
}

void ThrowIfFailed(GstElement* pipeline) {
  const GstBusPtr bus(gst_element_get_bus(pipeline));
  const GstMessagePtr message(
      gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR));
  if (!message) return;
  GError* error = nullptr;
  gst_message_parse_error(message.get(), &error, nullptr);
  const GErrorPtr owned(error);
  throw ProgramError(kStatusRefused, owned->message);
}

std::string PullPicture(GstElement* pipeline) {
  const bool isStarted = gst_element_set_state(pipeline, GST_STATE_PLAYING) !=
                         GST_STATE_CHANGE_FAILURE;
  const GstElementPtr sink = FindElement(pipeline, "sink");
  constexpr GstClockTime kLook = 50 * GST_MSECOND;
  for (;;) {
    const GstSamplePtr sample(
        gst_app_sink_try_pull_sample(GST_APP_SINK(sink.get()), kLook));
    if (sample) {
      const ReadableBuffer bytes(gst_sample_get_buffer(sample.get()));
      return {bytes.data(), bytes.data() + bytes.size()};
    }
    ThrowIfFailed(pipeline);
    if (!isStarted || gst_app_sink_is_eos(GST_APP_SINK(sink.get())) != FALSE) {
      throw ProgramError(kStatusRefused, "the source has no picture");
    }
  }
}

}  // namespace

std::string TakePicture(const ShotOptions& options) {
  try {
    InitializeGStreamer();
    if (options.source.backend == "x11") {
      RequireSource(options.source);
      XInitThreads();
      XSetErrorHandler(NoThrow<&HandleError>);
      XSetIOErrorHandler(NoThrow<&HandleIoError>);
    }
    // Its end is that of the process: a server that stands still would hold it.
    GstElement* const pipeline = Launch(options).release();
    return PullPicture(pipeline);
  } catch (const CodedError& error) {
    throw ProgramError(error.code() == error_code::kMissingElement
                           ? kStatusMissingElement
                           : kStatusRefused,
                       error.what());
  }
}

}  // namespace linux_capture::shot
