#ifndef LINUX_CAPTURE_TESTS_DESKTOPS_PROGRAMS_WINDOW_SURFACE_H_
#define LINUX_CAPTURE_TESTS_DESKTOPS_PROGRAMS_WINDOW_SURFACE_H_

#include <wayland-client.h>
#include <xdg_shell-client-protocol.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "window_picture.h"

namespace linux_capture::wayland_window {

// The functions that end these are of each file's own, so no type can name
// them.
struct Destroy {
  void operator()(wl_display* handle) const noexcept {
    wl_display_disconnect(handle);
  }
  void operator()(wl_registry* handle) const noexcept {
    wl_registry_destroy(handle);
  }
  void operator()(wl_compositor* handle) const noexcept {
    wl_compositor_destroy(handle);
  }
  void operator()(wl_shm* handle) const noexcept { wl_shm_destroy(handle); }
  void operator()(wl_seat* handle) const noexcept { wl_seat_destroy(handle); }
  void operator()(wl_pointer* handle) const noexcept {
    wl_pointer_destroy(handle);
  }
  void operator()(wl_surface* handle) const noexcept {
    wl_surface_destroy(handle);
  }
  void operator()(xdg_wm_base* handle) const noexcept {
    xdg_wm_base_destroy(handle);
  }
  void operator()(xdg_surface* handle) const noexcept {
    xdg_surface_destroy(handle);
  }
  void operator()(xdg_toplevel* handle) const noexcept {
    xdg_toplevel_destroy(handle);
  }
};
using DisplayPtr = std::unique_ptr<wl_display, Destroy>;
using RegistryPtr = std::unique_ptr<wl_registry, Destroy>;
using CompositorPtr = std::unique_ptr<wl_compositor, Destroy>;
using ShmPtr = std::unique_ptr<wl_shm, Destroy>;
using SeatPtr = std::unique_ptr<wl_seat, Destroy>;
using PointerPtr = std::unique_ptr<wl_pointer, Destroy>;
using SurfacePtr = std::unique_ptr<wl_surface, Destroy>;
using BasePtr = std::unique_ptr<xdg_wm_base, Destroy>;
using ShellSurfacePtr = std::unique_ptr<xdg_surface, Destroy>;
using ToplevelPtr = std::unique_ptr<xdg_toplevel, Destroy>;

// One picture in memory that the compositor reads.
class SharedPicture {
 public:
  SharedPicture(wl_shm* shm, Size size);
  SharedPicture(const SharedPicture&) = delete;
  SharedPicture& operator=(const SharedPicture&) = delete;
  ~SharedPicture();

  [[nodiscard]] bool IsFree() const { return !isUsed_; }
  [[nodiscard]] Size size() const { return size_; }
  [[nodiscard]] std::span<std::uint32_t> pixels() const;
  wl_buffer* Lend();

 private:
  Size size_;
  std::size_t bytes_ = 0;
  void* memory_ = nullptr;
  wl_buffer* buffer_ = nullptr;
  bool isUsed_ = false;
};

// What a press of the mouse has begun to change.
enum class Grab { kNone, kPlace, kSize };

// A window without decorations, with a pointer of its own: a plain square,
// which needs no theme. A press of the mouse in it begins to move it, near its
// lower right corner to change its size.
class Window {
 public:
  Window(Size size, const std::string& title, const std::string& applicationId);
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  ~Window() = default;

  [[nodiscard]] wl_display* display() const { return display_.get(); }
  [[nodiscard]] bool isClosed() const { return isClosed_; }
  [[nodiscard]] bool isFocused() const { return isFocused_; }
  [[nodiscard]] Size size() const { return size_; }
  void set_size(Size size) { size_ = size; }
  void SetFullscreen(bool isFull);
  void Minimize() { xdg_toplevel_set_minimized(toplevel_.get()); }
  [[nodiscard]] Grab TakeGrab();
  // Tells the compositor of the window, which then asks for its picture.
  void ShowNothing();
  [[nodiscard]] bool HasNews() const { return isConfigured_ || isClosed_; }
  // The compositor has asked for another picture: of another size, perhaps.
  [[nodiscard]] bool TakeConfigured();
  // False when the compositor still reads all pictures.
  bool Show(unsigned number);

 private:
  void Bind(wl_registry* registry, std::uint32_t name,
            const std::string& interface, std::uint32_t version);
  void UseSeat(std::uint32_t capabilities);
  void ShowPointer(std::uint32_t serial);
  void OnPress(std::uint32_t serial);
  SharedPicture* FreePicture();

  static const wl_registry_listener kRegistryListener;
  static const wl_seat_listener kSeatListener;
  static const wl_pointer_listener kPointerListener;
  static const xdg_wm_base_listener kBaseListener;
  static const xdg_surface_listener kSurfaceListener;
  static const xdg_toplevel_listener kToplevelListener;

  Size size_;
  Size asked_;
  Grab grab_ = Grab::kNone;
  bool isConfigured_ = false;
  bool isFocused_ = false;
  bool isClosed_ = false;
  double pointerX_ = 0;
  double pointerY_ = 0;
  DisplayPtr display_;
  RegistryPtr registry_;
  CompositorPtr compositor_;
  ShmPtr shm_;
  SeatPtr seat_;
  PointerPtr pointer_;
  BasePtr base_;
  SurfacePtr surface_;
  ShellSurfacePtr shellSurface_;
  ToplevelPtr toplevel_;
  std::vector<std::unique_ptr<SharedPicture>> pictures_;
  SurfacePtr pointerSurface_;
  std::unique_ptr<SharedPicture> pointerPicture_;
};

}  // namespace linux_capture::wayland_window

#endif  // LINUX_CAPTURE_TESTS_DESKTOPS_PROGRAMS_WINDOW_SURFACE_H_
