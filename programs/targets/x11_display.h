#ifndef LINUX_CAPTURE_PROGRAMS_TARGETS_X11_DISPLAY_H_
#define LINUX_CAPTURE_PROGRAMS_TARGETS_X11_DISPLAY_H_

#include <X11/Xlib.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace linux_capture::targets {

struct XFreeDeleter {
  void operator()(void* memory) const noexcept { XFree(memory); }
};

template <typename Type>
using XPtr = std::unique_ptr<Type, XFreeDeleter>;

// The properties of windows that are read, and the encoding of titles.
enum class Name { kTitle, kClientList, kProcess, kState, kUtf8, kCount };

// A connection to $DISPLAY. Errors of single requests are told by the requests
// themselves. When the server goes away `onLost` is called, and the thread that
// uses the connection stands still for ever. Only one at a time.
class X11Display {
 public:
  // Throws when no display can be reached.
  explicit X11Display(const std::function<void()>& onLost);
  X11Display(const X11Display&) = delete;
  X11Display& operator=(const X11Display&) = delete;
  ~X11Display();

  [[nodiscard]] Display* get() const { return display_; }
  [[nodiscard]] Atom atom(Name name) const {
    return atoms_.at(static_cast<std::size_t>(name));
  }

 private:
  Display* display_;
  std::array<Atom, static_cast<std::size_t>(Name::kCount)> atoms_{};
};

// "the X display ":0"", for messages.
std::string DisplayPhrase();

// The 32-bit values of a property; none where it is missing or of another
// size. Xlib hands each of them over in a long.
std::vector<unsigned long> ReadNumbers(const X11Display& display,
                                       ::Window window, Name property);

bool HasProperty(const X11Display& display, ::Window window, Name property);

// The window's title: UTF-8 by the rules, any bytes by experience.
std::string ReadTitle(const X11Display& display, ::Window window);

std::string ReadClassName(const X11Display& display, ::Window window);

}  // namespace linux_capture::targets

#endif  // LINUX_CAPTURE_PROGRAMS_TARGETS_X11_DISPLAY_H_
