#include "launch_boundary/x11_source_check.h"

#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>

#include "base/coded_error.h"
#include "base/expendable_thread.h"
#include "base/gst_handles.h"
#include "base/pipeline_elements.h"
#include "base/stage_log.h"
#include "launch_boundary/x11_pixel_format.h"

namespace linux_capture {
namespace {

// Unlike Xlib, this library answers a failed request to the one who asked and
// never ends the process.
using XcbConnectionPtr =
    std::unique_ptr<xcb_connection_t,
                    decltype([](xcb_connection_t* connection) {
                      xcb_disconnect(connection);
                    })>;
// Replies are allocated by the C library's allocator.
struct XcbReplyDeleter {
  // NOLINTNEXTLINE(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
  void operator()(void* reply) const noexcept { std::free(reply); }
};
template <typename Reply>
using XcbReplyPtr = std::unique_ptr<Reply, XcbReplyDeleter>;

const xcb_screen_t* ScreenNumber(xcb_connection_t* connection, int number) {
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
  for (; screens.rem > 0 && number > 0; --number) xcb_screen_next(&screens);
  return screens.rem > 0 ? screens.data : nullptr;
}

void RequireWindow(xcb_connection_t* connection, std::uint64_t handle) {
  XcbReplyPtr<xcb_get_window_attributes_reply_t> attributes;
  if (handle <= std::numeric_limits<xcb_window_t>::max()) {
    xcb_generic_error_t* rawError = nullptr;
    attributes.reset(xcb_get_window_attributes_reply(
        connection,
        xcb_get_window_attributes(connection,
                                  static_cast<xcb_window_t>(handle)),
        &rawError));
    const XcbReplyPtr<xcb_generic_error_t> error(rawError);
    // A server that went away meanwhile is for the launch to report.
    if (xcb_connection_has_error(connection) != 0) return;
  }
  if (!attributes) {
    throw CodedError(
        error_code::kWindowMissing,
        "X11 window " + std::to_string(handle) + " does not exist");
  }
}

// Asked for, because the size told at the connection is that of the server's
// start.
std::optional<X11ScreenSize> SizeOf(xcb_connection_t* connection,
                                    xcb_window_t root) {
  const XcbReplyPtr<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(
      connection, xcb_get_geometry(connection, root), nullptr));
  if (!geometry) return std::nullopt;
  return X11ScreenSize{geometry->width, geometry->height};
}

std::string SizeText(std::int64_t width, std::int64_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

// The branches have the shape of the rectangle: what is left of it is not to be
// stretched to that, so the scalers add borders.
void KeepProportions(GstElement* pipeline) {
  ForEachElementOf(pipeline, "capsfilter", [](GstElement* capsFilter) {
    const GstElementPtr upstream = UpstreamOf(capsFilter);
    if (!upstream || FactoryNameOf(upstream.get()) != "videorate") return;
    GstCaps* raw = nullptr;
    g_object_get(capsFilter, "caps", &raw, nullptr);
    const GstCapsPtr caps(gst_caps_make_writable(raw));
    gst_caps_set_simple(caps.get(), "pixel-aspect-ratio", GST_TYPE_FRACTION, 1,
                        1, nullptr);
    g_object_set(capsFilter, "caps", caps.get(), nullptr);
  });
}

}  // namespace

void RequireRectangleOnScreen(const CaptureConfig& config,
                              const X11ScreenSize& screen) {
  const auto refuse = [&](const std::string& reason) {
    throw CodedError(
        error_code::kRectangleOffScreen,
        "source.geometry " + SizeText(config.sourceWidth, config.sourceHeight) +
            " at " + std::to_string(config.x) + "," + std::to_string(config.y) +
            reason + " of " + SizeText(screen.width, screen.height));
  };
  if (config.x < 0 || config.y < 0) {
    refuse(" begins outside the X11 screen");
  }
  if (config.x >= screen.width || config.y >= screen.height) {
    refuse(" lies outside the X11 screen");
  }
  // What GStreamer's property holds; the launch would print a warning.
  constexpr std::int64_t kLast = std::numeric_limits<std::int32_t>::max();
  if (std::int64_t{config.x} + config.sourceWidth - 1 > kLast ||
      std::int64_t{config.y} + config.sourceHeight - 1 > kLast) {
    refuse(" ends too far outside the X11 screen");
  }
}

bool X11ServerAnswers() {
  constexpr auto kLongest = std::chrono::milliseconds(500);
  ExpendableThread thread;
  return thread.Do(
      [] {
        const XcbConnectionPtr connection(xcb_connect(nullptr, nullptr));
        if (xcb_connection_has_error(connection.get()) != 0) return;
        const XcbReplyPtr<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(connection.get(),
                                      xcb_get_input_focus(connection.get()),
                                      nullptr));
      },
      std::chrono::steady_clock::now() + kLongest);
}

std::optional<X11ScreenSize> RequireX11Source(const CaptureConfig& config) {
  int number = 0;
  const XcbConnectionPtr connection(xcb_connect(nullptr, &number));
  if (xcb_connection_has_error(connection.get()) != 0) return std::nullopt;
  const xcb_screen_t* screen = ScreenNumber(connection.get(), number);
  if (screen == nullptr) return std::nullopt;
  RequireReadablePixels(*screen);
  if (config.kind == "window") {
    RequireWindow(connection.get(), config.windowHandle);
  }
  const std::optional<X11ScreenSize> size =
      SizeOf(connection.get(), screen->root);
  if (size && config.kind == "monitor") {
    RequireRectangleOnScreen(config, *size);
  }
  return size;
}

void LimitToScreen(GstElement* pipeline, const CaptureConfig& config,
                   const X11ScreenSize& screen) {
  if (config.kind != "monitor") return;
  const std::int64_t right = std::int64_t{config.x} + config.sourceWidth;
  const std::int64_t bottom = std::int64_t{config.y} + config.sourceHeight;
  if (right <= screen.width && bottom <= screen.height) return;
  const auto lastColumn = std::min<std::int64_t>(right, screen.width) - 1;
  const auto lastRow = std::min<std::int64_t>(bottom, screen.height) - 1;
  ForEachElementOf(pipeline, "ximagesrc", [&](GstElement* source) {
    // All four: when it was linked, the source has already seen that the
    // rectangle does not fit, and has turned to the whole screen.
    g_object_set(source, "startx", static_cast<guint>(config.x), "starty",
                 static_cast<guint>(config.y), "endx",
                 static_cast<guint>(lastColumn), "endy",
                 static_cast<guint>(lastRow), nullptr);
  });
  KeepProportions(pipeline);
  LogCaptureStage("launch:limited-to-x11-screen=" +
                  SizeText(screen.width, screen.height));
}

}  // namespace linux_capture
