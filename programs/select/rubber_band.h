#ifndef LINUX_CAPTURE_PROGRAMS_SELECT_RUBBER_BAND_H_
#define LINUX_CAPTURE_PROGRAMS_SELECT_RUBBER_BAND_H_

#include <X11/Xlib.h>

#include <array>

namespace linux_capture::select {

struct Rectangle {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

// A frame around a part of the screen. It is made of four windows, which need
// neither an extension nor a compositor, and no pixel of that part is under it.
class RubberBand {
 public:
  explicit RubberBand(Display* display);
  RubberBand(const RubberBand&) = delete;
  RubberBand& operator=(const RubberBand&) = delete;
  // Takes it off the screen.
  ~RubberBand();

  void Show(const Rectangle& around);
  void Hide();

 private:
  Display* display_;
  std::array<Window, 4> sides_{};
};

}  // namespace linux_capture::select

#endif  // LINUX_CAPTURE_PROGRAMS_SELECT_RUBBER_BAND_H_
