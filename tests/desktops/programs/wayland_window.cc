// A window with numbered pictures, on any compositor of Wayland:
//
//   wayland_window [--size WIDTHxHEIGHT] [--title TITLE] [--app-id ID]
//                  [--fps N] [--fullscreen]
//
//   shown WIDTHxHEIGHT      a picture of a new size is on its way
//   focused, left           it has the keyboard, or no longer
//   sent N at=US            a picture that was asked for by "once", on the
//                           monotonic clock
//   moved, resized          a press of the mouse has begun it
//   holding                 nothing changes any more
//   closed                  the compositor has asked the window to close
//
// Commands on standard input: "send" (N pictures a second, as at the start),
// "hold", "once", "size WIDTH HEIGHT", "fullscreen 0|1", "minimize". The end of
// standard input ends the program and closes the window.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <string>

#include "window_surface.h"

namespace linux_capture::wayland_window {
namespace {

using Clock = std::chrono::steady_clock;

struct Options {
  Size size{640, 360};
  std::string title = "numbered pictures";
  std::string applicationId = "numbered-pictures";
  int fps = 30;
  bool isFullscreen = false;
};

void Print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

Options ReadOptions(int count, char** words) {
  Options options;
  for (int at = 1; at < count; ++at) {
    const std::string option = words[at];
    if (option == "--fullscreen") {
      options.isFullscreen = true;
      continue;
    }
    if (at + 1 == count) throw std::runtime_error(option + " needs a value");
    const std::string value = words[++at];
    if (option == "--size") {
      if (std::sscanf(value.c_str(), "%dx%d", &options.size.width,
                      &options.size.height) != 2) {
        throw std::runtime_error("no size: " + value);
      }
    } else if (option == "--title") {
      options.title = value;
    } else if (option == "--app-id") {
      options.applicationId = value;
    } else if (option == "--fps") {
      options.fps = std::stoi(value);
    } else {
      throw std::runtime_error("unknown option " + option);
    }
  }
  return options;
}

class Program {
 public:
  explicit Program(const Options& options)
      : period_(std::chrono::nanoseconds(std::chrono::seconds(1)) /
                options.fps),
        window_(options.size, options.title, options.applicationId) {
    if (options.isFullscreen) window_.SetFullscreen(true);
    window_.ShowNothing();
  }

  void Run() {
    while (!isOver_ && Wait()) {
      if (window_.isClosed()) {
        Print("closed");
        return;
      }
      TellGrab();
      TellFocus();
      if (window_.TakeConfigured()) {
        isVisible_ = true;
        ShowNext();
      }
      if (isVisible_ && isSending_ && Clock::now() >= next_) {
        ShowNext();
        next_ = std::max(next_ + period_, Clock::now());
      }
    }
  }

 private:
  // Until something arrives or the next picture is due.
  bool Wait() {
    wl_display* const display = window_.display();
    while (wl_display_prepare_read(display) != 0) {
      wl_display_dispatch_pending(display);
    }
    wl_display_flush(display);
    if (window_.HasNews()) {
      wl_display_cancel_read(display);
      return true;
    }
    std::array<pollfd, 2> sources = {
        pollfd{wl_display_get_fd(display), POLLIN, 0},
        pollfd{STDIN_FILENO, POLLIN, 0}};
    poll(sources.data(), sources.size(), MillisecondsToNext());
    if (sources[0].revents != 0) {
      if (wl_display_read_events(display) < 0) return false;
      if (wl_display_dispatch_pending(display) < 0) return false;
    } else {
      wl_display_cancel_read(display);
    }
    if (sources[1].revents != 0) ReadCommands();
    return true;
  }

  [[nodiscard]] int MillisecondsToNext() const {
    if (!isSending_ || !isVisible_) return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now());
    return std::max(0, static_cast<int>(left.count()));
  }

  void TellGrab() {
    const Grab grab = window_.TakeGrab();
    if (grab == Grab::kPlace) Print("moved");
    if (grab == Grab::kSize) Print("resized");
  }

  void TellFocus() {
    if (isFocused_ == window_.isFocused()) return;
    isFocused_ = window_.isFocused();
    Print(isFocused_ ? "focused" : "left");
  }

  void ShowNext() {
    if (!window_.Show(number_)) return;
    ++number_;
    if (shown_ == window_.size()) return;
    shown_ = window_.size();
    Print("shown " + std::to_string(shown_.width) + "x" +
          std::to_string(shown_.height));
  }

  void ReadCommands() {
    std::array<char, 256> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) {
      isOver_ = true;
      return;
    }
    pending_.append(bytes.data(), static_cast<std::size_t>(count));
    for (std::size_t end = pending_.find('\n'); end != std::string::npos;
         end = pending_.find('\n')) {
      Obey(pending_.substr(0, end));
      pending_.erase(0, end + 1);
    }
  }

  void Obey(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    int first = 0;
    int second = 0;
    words >> command >> first >> second;
    if (command == "send") {
      isSending_ = true;
      next_ = Clock::now();
    } else if (command == "hold") {
      isSending_ = false;
      Print("holding");
    } else if (command == "once") {
      const auto at = std::chrono::duration_cast<std::chrono::microseconds>(
          Clock::now().time_since_epoch());
      ShowNext();
      Print("sent " + std::to_string(number_ - 1) +
            " at=" + std::to_string(at.count()));
    } else if (command == "size") {
      window_.set_size({first, second});
      ShowNext();
    } else if (command == "fullscreen") {
      window_.SetFullscreen(first != 0);
    } else if (command == "minimize") {
      window_.Minimize();
    } else {
      throw std::runtime_error("unknown command " + line);
    }
  }

  const Clock::duration period_;
  Window window_;
  Size shown_;
  unsigned number_ = 0;
  Clock::time_point next_ = Clock::now();
  bool isFocused_ = false;
  bool isVisible_ = false;
  bool isSending_ = true;
  bool isOver_ = false;
  std::string pending_;
};

}  // namespace
}  // namespace linux_capture::wayland_window

int main(int count, char** words) {
  using namespace linux_capture::wayland_window;
  try {
    Program(ReadOptions(count, words)).Run();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "wayland_window: %s\n", error.what());
    return 1;
  }
}
