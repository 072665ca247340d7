#include "window_surface.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace linux_capture::wayland_window {
namespace {

constexpr std::size_t kMostPictures = 4;
// Where a press changes the size, in pixels from the lower right corner.
constexpr int kCorner = 32;

constexpr Size kPointerSize{24, 24};
// Like nothing that the pictures show.
constexpr std::uint32_t kPointerColour = 0xff00ff;

Window& WindowOf(void* data) { return *static_cast<Window*>(data); }

}  // namespace

SharedPicture::SharedPicture(wl_shm* shm, Size size)
    : size_(size),
      bytes_(static_cast<std::size_t>(size.width) *
             static_cast<std::size_t>(size.height) * sizeof(std::uint32_t)) {
  const int file = memfd_create("picture", MFD_CLOEXEC);
  if (file < 0 || ftruncate(file, static_cast<off_t>(bytes_)) != 0) {
    throw std::runtime_error("no memory for a picture");
  }
  memory_ = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (memory_ == MAP_FAILED) throw std::runtime_error("no memory to write to");
  wl_shm_pool* const pool =
      wl_shm_create_pool(shm, file, static_cast<std::int32_t>(bytes_));
  close(file);
  buffer_ = wl_shm_pool_create_buffer(
      pool, 0, size.width, size.height,
      size.width * static_cast<int>(sizeof(std::uint32_t)),
      WL_SHM_FORMAT_XRGB8888);
  wl_shm_pool_destroy(pool);
  static constexpr wl_buffer_listener kListener = {
      [](void* picture, wl_buffer*) {
        static_cast<SharedPicture*>(picture)->isUsed_ = false;
      }};
  wl_buffer_add_listener(buffer_, &kListener, this);
}

SharedPicture::~SharedPicture() {
  wl_buffer_destroy(buffer_);
  munmap(memory_, bytes_);
}

std::span<std::uint32_t> SharedPicture::pixels() const {
  return {static_cast<std::uint32_t*>(memory_), bytes_ / sizeof(std::uint32_t)};
}

wl_buffer* SharedPicture::Lend() {
  isUsed_ = true;
  return buffer_;
}

const wl_registry_listener Window::kRegistryListener = {
    [](void* window, wl_registry* registry, std::uint32_t name,
       const char* interface, std::uint32_t version) {
      WindowOf(window).Bind(registry, name, interface, version);
    },
    [](void*, wl_registry*, std::uint32_t) {}};

const wl_seat_listener Window::kSeatListener = {
    [](void* window, wl_seat*, std::uint32_t capabilities) {
      WindowOf(window).UseSeat(capabilities);
    },
    [](void*, wl_seat*, const char*) {}};

// Later releases know more events, of versions that are not asked for here.
const wl_pointer_listener Window::kPointerListener = [] {
  wl_pointer_listener listener{};
  listener.enter = [](void* window, wl_pointer*, std::uint32_t serial,
                      wl_surface*, wl_fixed_t x, wl_fixed_t y) {
    WindowOf(window).pointerX_ = wl_fixed_to_double(x);
    WindowOf(window).pointerY_ = wl_fixed_to_double(y);
    WindowOf(window).ShowPointer(serial);
  };
  listener.leave = [](void*, wl_pointer*, std::uint32_t, wl_surface*) {};
  listener.motion = [](void* window, wl_pointer*, std::uint32_t, wl_fixed_t x,
                       wl_fixed_t y) {
    WindowOf(window).pointerX_ = wl_fixed_to_double(x);
    WindowOf(window).pointerY_ = wl_fixed_to_double(y);
  };
  listener.button = [](void* window, wl_pointer*, std::uint32_t serial,
                       std::uint32_t, std::uint32_t, std::uint32_t state) {
    if (state == WL_POINTER_BUTTON_STATE_PRESSED) {
      WindowOf(window).OnPress(serial);
    }
  };
  listener.axis = [](void*, wl_pointer*, std::uint32_t, std::uint32_t,
                     wl_fixed_t) {};
  listener.frame = [](void*, wl_pointer*) {};
  listener.axis_source = [](void*, wl_pointer*, std::uint32_t) {};
  listener.axis_stop = [](void*, wl_pointer*, std::uint32_t, std::uint32_t) {};
  listener.axis_discrete = [](void*, wl_pointer*, std::uint32_t, std::int32_t) {
  };
  listener.axis_value120 = [](void*, wl_pointer*, std::uint32_t, std::int32_t) {
  };
  return listener;
}();

const xdg_wm_base_listener Window::kBaseListener = {
    [](void*, xdg_wm_base* base, std::uint32_t serial) {
      xdg_wm_base_pong(base, serial);
    }};

const xdg_surface_listener Window::kSurfaceListener = {
    [](void* data, xdg_surface* surface, std::uint32_t serial) {
      xdg_surface_ack_configure(surface, serial);
      Window& window = WindowOf(data);
      if (window.asked_.width > 0) window.size_ = window.asked_;
      window.isConfigured_ = true;
    }};

const xdg_toplevel_listener Window::kToplevelListener = {
    .configure =
        [](void* window, xdg_toplevel*, std::int32_t width, std::int32_t height,
           wl_array* states) {
          Window& self = WindowOf(window);
          self.asked_ = {width, height};
          const std::span<const std::uint32_t> all(
              static_cast<const std::uint32_t*>(states->data),
              states->size / sizeof(std::uint32_t));
          self.isFocused_ =
              std::find(all.begin(), all.end(), XDG_TOPLEVEL_STATE_ACTIVATED) !=
              all.end();
        },
    .close = [](void* window,
                xdg_toplevel*) { WindowOf(window).isClosed_ = true; },
    .configure_bounds = [](void*, xdg_toplevel*, std::int32_t, std::int32_t) {},
    .wm_capabilities = [](void*, xdg_toplevel*, wl_array*) {},
};

Window::Window(Size size, const std::string& title,
               const std::string& applicationId)
    : size_(size), display_(wl_display_connect(nullptr)) {
  if (!display_) throw std::runtime_error("there is no compositor");
  registry_.reset(wl_display_get_registry(display_.get()));
  wl_registry_add_listener(registry_.get(), &kRegistryListener, this);
  wl_display_roundtrip(display_.get());
  if (!compositor_ || !shm_ || !base_) {
    throw std::runtime_error("the compositor shows no windows");
  }
  surface_.reset(wl_compositor_create_surface(compositor_.get()));
  shellSurface_.reset(xdg_wm_base_get_xdg_surface(base_.get(), surface_.get()));
  xdg_surface_add_listener(shellSurface_.get(), &kSurfaceListener, this);
  toplevel_.reset(xdg_surface_get_toplevel(shellSurface_.get()));
  xdg_toplevel_add_listener(toplevel_.get(), &kToplevelListener, this);
  xdg_toplevel_set_title(toplevel_.get(), title.c_str());
  xdg_toplevel_set_app_id(toplevel_.get(), applicationId.c_str());
}

void Window::Bind(wl_registry* registry, std::uint32_t name,
                  const std::string& interface, std::uint32_t version) {
  const auto bind = [&](const wl_interface& wanted, std::uint32_t most) {
    return wl_registry_bind(registry, name, &wanted, std::min(version, most));
  };
  if (interface == wl_compositor_interface.name) {
    compositor_.reset(
        static_cast<wl_compositor*>(bind(wl_compositor_interface, 4)));
  } else if (interface == wl_shm_interface.name) {
    shm_.reset(static_cast<wl_shm*>(bind(wl_shm_interface, 1)));
  } else if (interface == xdg_wm_base_interface.name) {
    base_.reset(static_cast<xdg_wm_base*>(bind(xdg_wm_base_interface, 2)));
    xdg_wm_base_add_listener(base_.get(), &kBaseListener, this);
  } else if (interface == wl_seat_interface.name && !seat_) {
    seat_.reset(static_cast<wl_seat*>(bind(wl_seat_interface, 5)));
    wl_seat_add_listener(seat_.get(), &kSeatListener, this);
  }
}

void Window::UseSeat(std::uint32_t capabilities) {
  const bool hasPointer = (capabilities & WL_SEAT_CAPABILITY_POINTER) != 0;
  if (!hasPointer) {
    pointer_.reset();
  } else if (!pointer_) {
    pointer_.reset(wl_seat_get_pointer(seat_.get()));
    wl_pointer_add_listener(pointer_.get(), &kPointerListener, this);
  }
}

void Window::ShowPointer(std::uint32_t serial) {
  if (!pointerSurface_) {
    pointerSurface_.reset(wl_compositor_create_surface(compositor_.get()));
    pointerPicture_ = std::make_unique<SharedPicture>(shm_.get(), kPointerSize);
    const auto pixels = pointerPicture_->pixels();
    std::fill(pixels.begin(), pixels.end(), kPointerColour);
  }
  wl_pointer_set_cursor(pointer_.get(), serial, pointerSurface_.get(), 0, 0);
  wl_surface_attach(pointerSurface_.get(), pointerPicture_->Lend(), 0, 0);
  wl_surface_damage_buffer(pointerSurface_.get(), 0, 0, kPointerSize.width,
                           kPointerSize.height);
  wl_surface_commit(pointerSurface_.get());
}

void Window::OnPress(std::uint32_t serial) {
  const bool isInCorner =
      pointerX_ > size_.width - kCorner && pointerY_ > size_.height - kCorner;
  grab_ = isInCorner ? Grab::kSize : Grab::kPlace;
  if (isInCorner) {
    xdg_toplevel_resize(toplevel_.get(), seat_.get(), serial,
                        XDG_TOPLEVEL_RESIZE_EDGE_BOTTOM_RIGHT);
  } else {
    xdg_toplevel_move(toplevel_.get(), seat_.get(), serial);
  }
}

void Window::SetFullscreen(bool isFull) {
  if (isFull) {
    xdg_toplevel_set_fullscreen(toplevel_.get(), nullptr);
  } else {
    xdg_toplevel_unset_fullscreen(toplevel_.get());
  }
}

void Window::ShowNothing() {
  wl_surface_commit(surface_.get());
  wl_display_flush(display_.get());
}

Grab Window::TakeGrab() { return std::exchange(grab_, Grab::kNone); }

bool Window::TakeConfigured() { return std::exchange(isConfigured_, false); }

SharedPicture* Window::FreePicture() {
  std::erase_if(pictures_, [this](const auto& picture) {
    return picture->IsFree() && picture->size() != size_;
  });
  for (const auto& picture : pictures_) {
    if (picture->IsFree()) return picture.get();
  }
  if (pictures_.size() == kMostPictures) return nullptr;
  pictures_.push_back(std::make_unique<SharedPicture>(shm_.get(), size_));
  return pictures_.back().get();
}

bool Window::Show(unsigned number) {
  SharedPicture* const picture = FreePicture();
  if (picture == nullptr) return false;
  PaintPicture(picture->pixels(), size_, number);
  wl_surface_attach(surface_.get(), picture->Lend(), 0, 0);
  wl_surface_damage_buffer(surface_.get(), 0, 0, size_.width, size_.height);
  wl_surface_commit(surface_.get());
  return wl_display_flush(display_.get()) >= 0;
}

}  // namespace linux_capture::wayland_window
