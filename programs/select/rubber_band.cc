#include "select/rubber_band.h"

#include <cstddef>

namespace linux_capture::select {
namespace {

constexpr int kThickness = 3;
constexpr Bool kYes = True;

// Seen on light and on dark ground.
unsigned long BandColour(Display* display, int screen) {
  XColor colour{};
  colour.red = 0xff00;
  colour.green = 0x7f00;
  colour.flags = DoRed | DoGreen | DoBlue;
  return XAllocColor(display, DefaultColormap(display, screen), &colour) == 0
             ? WhitePixel(display, screen)
             : colour.pixel;
}

unsigned int Unsigned(int value) { return static_cast<unsigned int>(value); }

}  // namespace

RubberBand::RubberBand(Display* display) : display_(display) {
  const int screen = DefaultScreen(display);
  XSetWindowAttributes attributes{};
  // No window manager may move, decorate or delay it.
  attributes.override_redirect = kYes;
  attributes.background_pixel = BandColour(display, screen);
  attributes.save_under = kYes;
  for (Window& side : sides_) {
    side = XCreateWindow(display, RootWindow(display, screen), 0, 0, 1, 1, 0,
                         CopyFromParent, InputOutput, CopyFromParent,
                         CWOverrideRedirect | CWBackPixel | CWSaveUnder,
                         &attributes);
    XStoreName(display, side, "linux-capture-select");
  }
}

RubberBand::~RubberBand() {
  for (const Window side : sides_) XDestroyWindow(display_, side);
}

void RubberBand::Show(const Rectangle& around) {
  const auto [x, y, width, height] = around;
  const int wide = width + 2 * kThickness;
  const std::array<Rectangle, 4> places{
      {{x - kThickness, y - kThickness, wide, kThickness},
       {x - kThickness, y + height, wide, kThickness},
       {x - kThickness, y, kThickness, height},
       {x + width, y, kThickness, height}}};
  for (std::size_t i = 0; i < sides_.size(); ++i) {
    const Rectangle& place = places.at(i);
    XMoveResizeWindow(display_, sides_.at(i), place.x, place.y,
                      Unsigned(place.width), Unsigned(place.height));
    XMapRaised(display_, sides_.at(i));
  }
}

void RubberBand::Hide() {
  for (const Window side : sides_) XUnmapWindow(display_, side);
}

}  // namespace linux_capture::select
