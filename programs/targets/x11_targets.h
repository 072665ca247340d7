#ifndef LINUX_CAPTURE_PROGRAMS_TARGETS_X11_TARGETS_H_
#define LINUX_CAPTURE_PROGRAMS_TARGETS_X11_TARGETS_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace linux_capture::targets {

struct Rectangle {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

struct Monitor {
  std::string name;
  bool isPrimary = false;
  Rectangle geometry;
};

// Texts are empty and the process 0 where the window does not tell.
struct Window {
  std::uint64_t id = 0;
  std::string title;
  std::string className;
  std::uint32_t processId = 0;
  Rectangle geometry;
};

struct X11Targets {
  std::vector<Monitor> monitors;
  // Those that can be seen, because no other can be captured.
  std::vector<Window> windows;
};

// What is on $DISPLAY. Throws when it cannot be reached. `onStep` is called
// behind every few answers of the server; when that goes away `onLost` is, and
// the call never returns.
X11Targets ListX11Targets(const std::function<void()>& onStep,
                          const std::function<void()>& onLost);

}  // namespace linux_capture::targets

#endif  // LINUX_CAPTURE_PROGRAMS_TARGETS_X11_TARGETS_H_
