#ifndef LINUX_CAPTURE_BENCH_SCENE_X11_SCREEN_H_
#define LINUX_CAPTURE_BENCH_SCENE_X11_SCREEN_H_

#include <X11/Xlib.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "scene_picture.h"

namespace linux_capture::bench {

// Shows the pictures of a scene on $DISPLAY. The textures lie in the server, so
// that a picture is a handful of copies there and costs this program nothing.
class X11Screen {
 public:
  // Maps a window over the upper left of the screen. `scene` must outlive it.
  explicit X11Screen(const ScenePicture& scene);
  ~X11Screen();
  X11Screen(const X11Screen&) = delete;
  X11Screen& operator=(const X11Screen&) = delete;

  // Draws one picture; it is on the screen when this returns. A capture sees
  // the picture before or this one, never a part of each.
  void Show(std::uint32_t number);

 private:
  struct CloseDisplay {
    void operator()(Display* display) const { XCloseDisplay(display); }
  };

  void OpenWindow();
  void Upload(const Canvas& texture);

  const ScenePicture& scene_;
  std::unique_ptr<Display, CloseDisplay> display_;
  Window window_ = None;
  GC gc_ = nullptr;
  std::map<const Canvas*, Pixmap> pixmaps_;
  std::optional<std::uint32_t> shown_;
};

}  // namespace linux_capture::bench

#endif  // LINUX_CAPTURE_BENCH_SCENE_X11_SCREEN_H_
