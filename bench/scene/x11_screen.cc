#include "x11_screen.h"

#include <stdexcept>
#include <vector>

namespace linux_capture::bench {
namespace {

constexpr int kDepth = 24;

unsigned int Unsigned(int value) { return static_cast<unsigned int>(value); }

}  // namespace

X11Screen::X11Screen(const ScenePicture& scene)
    : scene_(scene), display_(XOpenDisplay(nullptr)) {
  if (!display_) throw std::runtime_error("no X display can be reached");
  OpenWindow();
  for (const Canvas* texture : scene_.textures()) Upload(*texture);
}

X11Screen::~X11Screen() {
  for (const auto& entry : pixmaps_) XFreePixmap(display_.get(), entry.second);
  XFreeGC(display_.get(), gc_);
}

void X11Screen::OpenWindow() {
  Display* const display = display_.get();
  const int screen = DefaultScreen(display);
  if (DefaultVisual(display, screen)->c_class != TrueColor ||
      DefaultDepth(display, screen) != kDepth) {
    throw std::runtime_error("the display needs 24 bits of true colour");
  }
  XSetWindowAttributes attributes{};
  // No window manager may move, decorate or delay this window.
  attributes.override_redirect = True;
  attributes.event_mask = ExposureMask;
  window_ = XCreateWindow(display, RootWindow(display, screen), 0, 0,
                          Unsigned(scene_.width()), Unsigned(scene_.height()),
                          0, CopyFromParent, InputOutput, CopyFromParent,
                          CWOverrideRedirect | CWEventMask, &attributes);
  gc_ = XCreateGC(display, window_, 0, nullptr);
  XSetGraphicsExposures(display, gc_, False);
  // Out of the picture, but for the one pixel that the pointer must be on.
  XWarpPointer(display, None, RootWindow(display, screen), 0, 0, 0, 0,
               DisplayWidth(display, screen) - 1,
               DisplayHeight(display, screen) - 1);
  XMapRaised(display, window_);
  XEvent event;
  XWindowEvent(display, window_, ExposureMask, &event);
}

void X11Screen::Upload(const Canvas& texture) {
  Display* const display = display_.get();
  const Pixmap pixmap =
      XCreatePixmap(display, window_, Unsigned(texture.width()),
                    Unsigned(texture.height()), kDepth);
  pixmaps_[&texture] = pixmap;
  XImage image{};
  image.width = texture.width();
  image.height = texture.height();
  image.format = ZPixmap;
  // The library only reads the pixels.
  image.data = const_cast<char*>(reinterpret_cast<const char*>(texture.data()));
  image.byte_order = LSBFirst;
  image.bitmap_bit_order = LSBFirst;
  image.bitmap_unit = 32;
  image.bitmap_pad = 32;
  image.depth = kDepth;
  image.bits_per_pixel = 32;
  image.bytes_per_line = texture.width() * 4;
  image.red_mask = 0xff0000;
  image.green_mask = 0x00ff00;
  image.blue_mask = 0x0000ff;
  if (XInitImage(&image) == 0) {
    throw std::runtime_error("the X library refused a texture");
  }
  XPutImage(display, pixmap, gc_, &image, 0, 0, 0, 0, Unsigned(texture.width()),
            Unsigned(texture.height()));
}

void X11Screen::Show(std::uint32_t number) {
  Display* const display = display_.get();
  // Without a second buffer, which would double what the server copies.
  XGrabServer(display);
  for (const ScenePicture::Step& step : scene_.Steps(number, shown_)) {
    if (step.texture != nullptr) {
      XCopyArea(display, pixmaps_.at(step.texture), window_, gc_, step.area.x,
                step.area.y, Unsigned(step.area.width),
                Unsigned(step.area.height), step.x, step.y);
    } else {
      XSetForeground(display, gc_, step.colour);
      XFillRectangle(display, window_, gc_, step.x, step.y,
                     Unsigned(step.area.width), Unsigned(step.area.height));
    }
  }
  XUngrabServer(display);
  XSync(display, False);
  shown_ = number;
}

}  // namespace linux_capture::bench
