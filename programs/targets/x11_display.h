#ifndef LINUX_CAPTURE_PROGRAMS_TARGETS_X11_DISPLAY_H_
#define LINUX_CAPTURE_PROGRAMS_TARGETS_X11_DISPLAY_H_

#include <X11/Xlib.h>

#include <memory>
#include <string>
#include <vector>

namespace linux_capture::targets {

struct DisplayDeleter {
  void operator()(Display* display) const noexcept { XCloseDisplay(display); }
};
struct XFreeDeleter {
  void operator()(void* memory) const noexcept { XFree(memory); }
};

using DisplayPtr = std::unique_ptr<Display, DisplayDeleter>;
template <typename Type>
using XPtr = std::unique_ptr<Type, XFreeDeleter>;

// The 32-bit values of a property; none where it is missing or of another
// size. Xlib hands each of them over in a long.
std::vector<unsigned long> ReadNumbers(Display* display, ::Window window,
                                       const char* property);

bool HasProperty(Display* display, ::Window window, const char* property);

// The window's title in UTF-8.
std::string ReadTitle(Display* display, ::Window window);

std::string ReadClassName(Display* display, ::Window window);

}  // namespace linux_capture::targets

#endif  // LINUX_CAPTURE_PROGRAMS_TARGETS_X11_DISPLAY_H_
