#ifndef LINUX_CAPTURE_TESTS_SUPPORT_SCENE_SCENE_WINDOW_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_SCENE_SCENE_WINDOW_H_

#include <X11/Xlib.h>

#include <cstdint>
#include <memory>

#include "scene_options.h"

namespace linux_capture::scene {

// One window that shows numbered pictures:
//
//   rows 0/8 to 1/8  sixteen cells, the picture's number, highest bit first,
//                    white for one and black for zero
//   rows 1/8 to 2/8  the same cells inverted, so that a reader can tell a
//                    number from a picture that is not this scene
//   rows 2/8 to 6/8  eight flat patches of known colours, four above four, so
//                    large that a small branch still codes each in blocks of
//                    its own
//   rows 6/8 to 8/8  a block that moves on a grey ground
class SceneWindow {
 public:
  // Opens $DISPLAY and maps the window; returns once it is on the screen.
  explicit SceneWindow(const SceneOptions& options);
  ~SceneWindow();
  SceneWindow(const SceneWindow&) = delete;
  SceneWindow& operator=(const SceneWindow&) = delete;

  Window id() const { return window_; }

  // Shows the picture with this number.
  void Show(std::uint16_t number);

  // Shows the last picture again when the server asks for it.
  void RepaintIfExposed();

  // Takes the window away; the connection stays open.
  void Destroy();

 private:
  struct CloseDisplay {
    void operator()(Display* display) const { XCloseDisplay(display); }
  };

  Window MakeFrame(const SceneOptions& options);
  void FillRectangle(unsigned long colour, int x, int y, int width, int height);
  void DrawBarcode(std::uint16_t number);
  void DrawPatches();
  void DrawMovingBlock(std::uint16_t number);
  void CopyToWindow();
  void WaitUntilExposed();

  std::unique_ptr<Display, CloseDisplay> display_;
  int width_;
  int height_;
  Window window_ = None;
  Pixmap picture_ = None;
  GC gc_ = nullptr;
};

}  // namespace linux_capture::scene

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_SCENE_SCENE_WINDOW_H_
