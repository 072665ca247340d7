#include "scene_window.h"

#include <array>
#include <cstring>
#include <stdexcept>

namespace linux_capture::scene {
namespace {

constexpr unsigned long kBlack = 0x000000;
constexpr unsigned long kWhite = 0xffffff;
constexpr unsigned long kGround = 0x404040;
constexpr unsigned long kBlock = 0xa0a0a0;
constexpr int kBarcodeBits = 16;

// tests/support/picture.mjs knows the same list.
constexpr int kPatchRows = 2;
constexpr int kPatchColumns = 4;
constexpr std::array<unsigned long, 8> kPatchColours = {
    0xc81e32, 0x1ea03c, 0x2850c8, 0xdcb414,
    0x808080, 0xffffff, 0x000000, 0x20b4b4};
static_assert(kPatchColours.size() == std::size_t{kPatchRows} * kPatchColumns);

// What a frame shows around its window.
constexpr int kBorder = 12;

// The property that tells a client's window from the frame around it.
void MarkAsManaged(Display* display, Window window) {
  const Atom state = XInternAtom(display, "WM_STATE", False);
  const std::array<long, 2> normal = {1, None};
  std::array<unsigned char, sizeof normal> bytes{};
  std::memcpy(bytes.data(), normal.data(), sizeof normal);
  XChangeProperty(display, window, state, state, 32, PropModeReplace,
                  bytes.data(), 2);
}

unsigned int Unsigned(int value) { return static_cast<unsigned int>(value); }

}  // namespace

SceneWindow::SceneWindow(const SceneOptions& options)
    : display_(XOpenDisplay(nullptr)),
      width_(options.width),
      height_(options.height) {
  if (!display_) {
    throw std::runtime_error("no X display can be reached");
  }
  Display* const display = display_.get();
  const int screen = DefaultScreen(display);
  if (DefaultVisual(display, screen)->c_class != TrueColor ||
      DefaultDepth(display, screen) < 24) {
    throw std::runtime_error("the display needs 24 bits of true colour");
  }

  XSetWindowAttributes attributes{};
  // No window manager may move, decorate or delay this window.
  attributes.override_redirect = True;
  attributes.event_mask = ExposureMask;
  const Window parent =
      options.isFramed ? MakeFrame(options) : RootWindow(display, screen);
  window_ = XCreateWindow(
      display, parent, options.isFramed ? kBorder : options.x,
      options.isFramed ? kBorder : options.y, Unsigned(width_),
      Unsigned(height_), 0, CopyFromParent, InputOutput, CopyFromParent,
      CWOverrideRedirect | CWEventMask, &attributes);
  if (options.isFramed) MarkAsManaged(display, window_);
  picture_ =
      XCreatePixmap(display, window_, Unsigned(width_), Unsigned(height_),
                    Unsigned(DefaultDepth(display, screen)));
  gc_ = XCreateGC(display, window_, 0, nullptr);
  // A copy between two areas of our own needs no "nothing was hidden" event.
  XSetGraphicsExposures(display, gc_, False);

  // The capture shows the pointer. It starts in the middle of the screen, on
  // top of the patches, so it is put where it covers nothing that is read.
  XWarpPointer(display, None, RootWindow(display, screen), 0, 0, 0, 0,
               DisplayWidth(display, screen) - 1,
               DisplayHeight(display, screen) - 1);

  XMapRaised(display, window_);
  WaitUntilExposed();
}

SceneWindow::~SceneWindow() {
  XFreeGC(display_.get(), gc_);
  XFreePixmap(display_.get(), picture_);
}

void SceneWindow::Show(std::uint16_t number) {
  DrawBarcode(number);
  DrawPatches();
  DrawMovingBlock(number);
  CopyToWindow();
}

void SceneWindow::RepaintIfExposed() {
  bool isExposed = false;
  while (XPending(display_.get()) > 0) {
    XEvent event;
    XNextEvent(display_.get(), &event);
    isExposed = isExposed || event.type == Expose;
  }
  if (isExposed) {
    CopyToWindow();
  }
}

void SceneWindow::Destroy() {
  if (window_ != None) {
    XDestroyWindow(display_.get(), window_);
    XSync(display_.get(), False);
    window_ = None;
  }
}

Window SceneWindow::MakeFrame(const SceneOptions& options) {
  Display* const display = display_.get();
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  attributes.background_pixel = kGround;
  const Window frame = XCreateWindow(
      display, DefaultRootWindow(display), options.x - kBorder,
      options.y - kBorder, Unsigned(width_ + 2 * kBorder),
      Unsigned(height_ + 2 * kBorder), 0, CopyFromParent, InputOutput,
      CopyFromParent, CWOverrideRedirect | CWBackPixel, &attributes);
  XMapRaised(display, frame);
  return frame;
}

void SceneWindow::FillRectangle(unsigned long colour, int x, int y, int width,
                                int height) {
  XSetForeground(display_.get(), gc_, colour);
  XFillRectangle(display_.get(), picture_, gc_, x, y, Unsigned(width),
                 Unsigned(height));
}

void SceneWindow::DrawBarcode(std::uint16_t number) {
  const int rowTwo = height_ / 8;
  const int rowEnd = height_ * 2 / 8;
  for (int bit = 0; bit < kBarcodeBits; ++bit) {
    const bool isSet = ((number >> (kBarcodeBits - 1 - bit)) & 1) != 0;
    const int left = width_ * bit / kBarcodeBits;
    const int cellWidth = width_ * (bit + 1) / kBarcodeBits - left;
    FillRectangle(isSet ? kWhite : kBlack, left, 0, cellWidth, rowTwo);
    FillRectangle(isSet ? kBlack : kWhite, left, rowTwo, cellWidth,
                  rowEnd - rowTwo);
  }
}

void SceneWindow::DrawPatches() {
  for (int patch = 0; patch < kPatchRows * kPatchColumns; ++patch) {
    const int column = patch % kPatchColumns;
    const int row = patch / kPatchColumns;
    const int left = width_ * column / kPatchColumns;
    const int top = height_ * (2 + 2 * row) / 8;
    FillRectangle(kPatchColours[static_cast<std::size_t>(patch)], left, top,
                  width_ * (column + 1) / kPatchColumns - left,
                  height_ * (4 + 2 * row) / 8 - top);
  }
}

void SceneWindow::DrawMovingBlock(std::uint16_t number) {
  const int top = height_ * 6 / 8;
  const int side = height_ / 8;
  FillRectangle(kGround, 0, top, width_, height_ - top);
  const int step = width_ / 40 + 1;
  const int range = width_ - side;
  FillRectangle(kBlock, (number * step) % range, top + side / 2, side, side);
}

void SceneWindow::CopyToWindow() {
  if (window_ == None) {
    return;
  }
  // One request for the whole picture: a capture sees the old picture or the
  // new one, never a half of each.
  XCopyArea(display_.get(), picture_, window_, gc_, 0, 0, Unsigned(width_),
            Unsigned(height_), 0, 0);
  // Waiting for the server keeps a slow one from falling behind unseen.
  XSync(display_.get(), False);
}

void SceneWindow::WaitUntilExposed() {
  XEvent event;
  do {
    XWindowEvent(display_.get(), window_, ExposureMask, &event);
  } while (event.xexpose.count > 0);
}

}  // namespace linux_capture::scene
