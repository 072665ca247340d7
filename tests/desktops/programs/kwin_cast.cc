// Asks KWin for a stream of a window, without a portal and its dialog, and
// holds it:
//
//   kwin_cast TITLE [hidden|embedded]
//
//   node N            the stream, once it is there
//   closed            the compositor has ended the stream
//
// Commands on standard input: "point X Y" puts the pointer on a place of the
// window, "motion DX DY" moves it on, "button CODE 0|1" lets a button of the
// mouse go up or down, by evdev's number, "move" and "resize" let the pointer
// drag the window or its corner until a button is pressed, "minimize 0|1" puts
// the window away or back. "stop" ends the stream and not the program; the end
// of standard input ends both.

#include <fake_input-client-protocol.h>
#include <plasma_windows-client-protocol.h>
#include <poll.h>
#include <screencast-client-protocol.h>
#include <unistd.h>
#include <wayland-client.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

namespace linux_capture::kwin_cast {
namespace {

using Input = org_kde_kwin_fake_input;
using WindowList = org_kde_plasma_window_management;
using ListedWindow = org_kde_plasma_window;
using Screencast = zkde_screencast_unstable_v1;
using Stream = zkde_screencast_stream_unstable_v1;

struct Destroy {
  void operator()(wl_display* handle) const noexcept {
    wl_display_disconnect(handle);
  }
  void operator()(wl_registry* handle) const noexcept {
    wl_registry_destroy(handle);
  }
  void operator()(Input* handle) const noexcept {
    org_kde_kwin_fake_input_destroy(handle);
  }
  void operator()(WindowList* handle) const noexcept {
    org_kde_plasma_window_management_destroy(handle);
  }
  void operator()(ListedWindow* handle) const noexcept {
    org_kde_plasma_window_destroy(handle);
  }
  void operator()(Screencast* handle) const noexcept {
    zkde_screencast_unstable_v1_destroy(handle);
  }
  void operator()(Stream* handle) const noexcept {
    zkde_screencast_stream_unstable_v1_close(handle);
  }
};
template <typename T>
using Ptr = std::unique_ptr<T, Destroy>;

void Print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

// libwayland ends the program at an event that has no function.
template <typename... Arguments>
void Ignore(void*, Arguments...) {}

class Program {
 public:
  Program(std::string title, bool hasCursor)
      : title_(std::move(title)),
        hasCursor_(hasCursor),
        display_(wl_display_connect(nullptr)) {
    if (!display_) throw std::runtime_error("there is no compositor");
    registry_.reset(wl_display_get_registry(display_.get()));
    wl_registry_add_listener(registry_.get(), &kRegistryListener, this);
    wl_display_roundtrip(display_.get());
    if (!input_ || !windows_ || !screencast_) {
      throw std::runtime_error("this compositor is not KWin");
    }
    org_kde_kwin_fake_input_authenticate(input_.get(), "kwin_cast", "tests");
  }

  void Run() {
    std::array<pollfd, 2> sources = {
        pollfd{wl_display_get_fd(display_.get()), POLLIN, 0},
        pollfd{STDIN_FILENO, POLLIN, 0}};
    while (wl_display_dispatch_pending(display_.get()) >= 0) {
      wl_display_flush(display_.get());
      poll(sources.data(), sources.size(), -1);
      if (sources[0].revents != 0 && wl_display_dispatch(display_.get()) < 0) {
        return;
      }
      if (sources[1].revents != 0 && !ReadCommands()) return;
    }
  }

 private:
  // A window of the list, known by its address.
  struct Candidate {
    Program* program = nullptr;
    std::string id;
    std::string title;
    std::int32_t x = 0;
    std::int32_t y = 0;
    bool hasPlace = false;
    Ptr<ListedWindow> handle;
  };

  template <typename T>
  void Bind(wl_registry* registry, std::uint32_t name,
            const wl_interface& interface, std::uint32_t version, Ptr<T>& to) {
    to.reset(
        static_cast<T*>(wl_registry_bind(registry, name, &interface, version)));
  }

  static void OnGlobal(void* data, wl_registry* registry, std::uint32_t name,
                       const char* interface, std::uint32_t) {
    auto* const self = static_cast<Program*>(data);
    const auto is = [interface](const wl_interface& known) {
      return std::strcmp(interface, known.name) == 0;
    };
    if (is(org_kde_kwin_fake_input_interface)) {
      self->Bind(registry, name, org_kde_kwin_fake_input_interface, 3,
                 self->input_);
    } else if (is(zkde_screencast_unstable_v1_interface)) {
      self->Bind(registry, name, zkde_screencast_unstable_v1_interface, 1,
                 self->screencast_);
    } else if (is(org_kde_plasma_window_management_interface)) {
      self->Bind(registry, name, org_kde_plasma_window_management_interface, 13,
                 self->windows_);
      org_kde_plasma_window_management_add_listener(self->windows_.get(),
                                                    &kListListener, self);
    }
  }

  static void OnWindow(void* data, WindowList* list, std::uint32_t,
                       const char* id) {
    auto* const self = static_cast<Program*>(data);
    Candidate& window = self->candidates_[id];
    window.program = self;
    window.id = id;
    window.handle.reset(
        org_kde_plasma_window_management_get_window_by_uuid(list, id));
    org_kde_plasma_window_add_listener(window.handle.get(), &kWindowListener,
                                       &window);
  }

  static void OnTitle(void* data, ListedWindow*, const char* title) {
    auto* const window = static_cast<Candidate*>(data);
    window->title = title;
    window->program->Consider(*window);
  }

  static void OnPlace(void* data, ListedWindow*, std::int32_t x, std::int32_t y,
                      std::uint32_t, std::uint32_t) {
    auto* const window = static_cast<Candidate*>(data);
    window->x = x;
    window->y = y;
    window->hasPlace = true;
    window->program->Consider(*window);
  }

  // Before a window has a place there is nothing of it to stream.
  void Consider(const Candidate& window) {
    if (stream_ || window.title != title_ || !window.hasPlace) return;
    chosen_ = &window;
    stream_.reset(zkde_screencast_unstable_v1_stream_window(
        screencast_.get(), window.id.c_str(),
        hasCursor_ ? ZKDE_SCREENCAST_UNSTABLE_V1_POINTER_EMBEDDED
                   : ZKDE_SCREENCAST_UNSTABLE_V1_POINTER_HIDDEN));
    zkde_screencast_stream_unstable_v1_add_listener(stream_.get(),
                                                    &kStreamListener, this);
  }

  static void OnCreated(void*, Stream*, std::uint32_t node) {
    Print("node " + std::to_string(node));
  }
  static void OnClosed(void*, Stream*) { Print("closed"); }
  static void OnFailed(void*, Stream*, const char* error) {
    Print(std::string("failed: ") + error);
  }

  bool ReadCommands() {
    std::array<char, 256> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) return false;
    pending_.append(bytes.data(), static_cast<std::size_t>(count));
    for (std::size_t end = pending_.find('\n'); end != std::string::npos;
         end = pending_.find('\n')) {
      Obey(pending_.substr(0, end));
      pending_.erase(0, end + 1);
    }
    return true;
  }

  void Obey(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    std::int32_t first = 0;
    std::int32_t second = 0;
    words >> command >> first >> second;
    if (chosen_ == nullptr) throw std::runtime_error("no window for " + line);
    if (command == "point") {
      org_kde_kwin_fake_input_pointer_motion_absolute(
          input_.get(), wl_fixed_from_int(chosen_->x + first),
          wl_fixed_from_int(chosen_->y + second));
    } else if (command == "motion") {
      org_kde_kwin_fake_input_pointer_motion(
          input_.get(), wl_fixed_from_int(first), wl_fixed_from_int(second));
    } else if (command == "move") {
      org_kde_plasma_window_request_move(chosen_->handle.get());
    } else if (command == "resize") {
      org_kde_plasma_window_request_resize(chosen_->handle.get());
    } else if (command == "button") {
      org_kde_kwin_fake_input_button(input_.get(),
                                     static_cast<std::uint32_t>(first),
                                     static_cast<std::uint32_t>(second));
    } else if (command == "minimize") {
      constexpr auto kBit = ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_MINIMIZED;
      org_kde_plasma_window_set_state(chosen_->handle.get(), kBit,
                                      first != 0 ? kBit : 0);
    } else if (command == "stop") {
      stream_.reset();
    } else {
      throw std::runtime_error("unknown command " + line);
    }
  }

  static const wl_registry_listener kRegistryListener;
  static const org_kde_plasma_window_management_listener kListListener;
  static const org_kde_plasma_window_listener kWindowListener;
  static const zkde_screencast_stream_unstable_v1_listener kStreamListener;

  const std::string title_;
  const bool hasCursor_;
  Ptr<wl_display> display_;
  Ptr<wl_registry> registry_;
  Ptr<Input> input_;
  Ptr<WindowList> windows_;
  Ptr<Screencast> screencast_;
  std::map<std::string, Candidate> candidates_;
  const Candidate* chosen_ = nullptr;
  Ptr<Stream> stream_;
  std::string pending_;
};

const wl_registry_listener Program::kRegistryListener = {OnGlobal, Ignore};

const org_kde_plasma_window_management_listener Program::kListListener = [] {
  org_kde_plasma_window_management_listener listener{};
  listener.show_desktop_changed = Ignore;
  listener.window = Ignore;
  listener.stacking_order_changed = Ignore;
  listener.stacking_order_uuid_changed = Ignore;
  listener.window_with_uuid = OnWindow;
  return listener;
}();

const org_kde_plasma_window_listener Program::kWindowListener = [] {
  org_kde_plasma_window_listener listener{};
  listener.title_changed = OnTitle;
  listener.app_id_changed = Ignore;
  listener.state_changed = Ignore;
  listener.virtual_desktop_changed = Ignore;
  listener.themed_icon_name_changed = Ignore;
  listener.unmapped = Ignore;
  listener.initial_state = Ignore;
  listener.parent_window = Ignore;
  listener.geometry = OnPlace;
  listener.icon_changed = Ignore;
  listener.pid_changed = Ignore;
  listener.virtual_desktop_entered = Ignore;
  listener.virtual_desktop_left = Ignore;
  listener.application_menu = Ignore;
  return listener;
}();

const zkde_screencast_stream_unstable_v1_listener Program::kStreamListener =
    [] {
      zkde_screencast_stream_unstable_v1_listener listener{};
      listener.closed = OnClosed;
      listener.created = OnCreated;
      listener.failed = OnFailed;
      return listener;
    }();

}  // namespace
}  // namespace linux_capture::kwin_cast

int main(int count, char** words) {
  using namespace linux_capture::kwin_cast;
  if (count < 2 || count > 3) {
    std::fprintf(stderr, "usage: kwin_cast TITLE [hidden|embedded]\n");
    return 2;
  }
  try {
    Program(words[1], count == 3 && std::strcmp(words[2], "embedded") == 0)
        .Run();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kwin_cast: %s\n", error.what());
    return 1;
  }
}
