#include "targets/x11_display.h"

#include <X11/Xutil.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "base/c_callback.h"

namespace linux_capture::targets {
namespace {

constexpr long kMaxLongs = 65'536;

struct Property {
  Atom type = None;
  int format = 0;
  unsigned long count = 0;
  XPtr<unsigned char> value;
};

Property Read(const X11Display& display, ::Window window, Name name,
              Atom type) {
  Property property;
  unsigned long left = 0;
  unsigned char* value = nullptr;
  const int result = XGetWindowProperty(
      display.get(), window, display.atom(name), 0, kMaxLongs, False, type,
      &property.type, &property.format, &property.count, &left, &value);
  property.value.reset(value);
  if (result != Success || !property.value) property.count = 0;
  return property;
}

// An old title is in the encoding that its property names.
std::string ReadOldTitle(Display* display, ::Window window) {
  XTextProperty text{};
  if (XGetWMName(display, window, &text) == 0) return {};
  const XPtr<unsigned char> owned(text.value);
  if (text.format != 8) return {};
  char** list = nullptr;
  int count = 0;
  std::string title;
  if (Xutf8TextPropertyToTextList(display, &text, &list, &count) >= Success &&
      list != nullptr) {
    if (count > 0) title = list[0];
    XFreeStringList(list);
  }
  return title;
}

// Windows may go between being listed and being looked at. Xlib would end the
// program; the calls themselves tell that they failed.
int IgnoreError(Display*, XErrorEvent*) noexcept { return 0; }

const std::function<void()>* g_onLost = nullptr;

// Xlib ends the program when its handler returns, and a display that is lost
// while it is being opened cannot be told to do otherwise. So the thread stays.
[[noreturn]] int HandleIoError(Display*) {
  (*g_onLost)();
  for (;;) pause();
}

Display* Open(const std::function<void()>& onLost) {
  g_onLost = &onLost;
  XSetErrorHandler(IgnoreError);
  XSetIOErrorHandler(NoThrow<&HandleIoError>);
  return XOpenDisplay(nullptr);
}

}  // namespace

std::string DisplayPhrase() {
  const char* name = std::getenv("DISPLAY");
  return "the X display \"" + std::string(name == nullptr ? "" : name) + '"';
}

X11Display::X11Display(const std::function<void()>& onLost)
    : display_(Open(onLost)) {
  if (display_ == nullptr) {
    throw std::runtime_error(std::getenv("DISPLAY") == nullptr
                                 ? "no X display: DISPLAY is not set"
                                 : DisplayPhrase() + " cannot be reached");
  }
  // In one go, because every question to the server costs a way there and back.
  std::array<std::string, static_cast<std::size_t>(Name::kCount)> names{
      "_NET_WM_NAME", "_NET_CLIENT_LIST", "_NET_WM_PID", "WM_STATE",
      "UTF8_STRING"};
  std::array<char*, names.size()> texts{};
  std::transform(names.begin(), names.end(), texts.begin(),
                 [](std::string& name) { return name.data(); });
  XInternAtoms(display_, texts.data(), static_cast<int>(texts.size()), False,
               atoms_.data());
}

X11Display::~X11Display() { XCloseDisplay(display_); }

std::vector<unsigned long> ReadNumbers(const X11Display& display,
                                       ::Window window, Name property) {
  const Property found = Read(display, window, property, AnyPropertyType);
  if (found.format != 32) return {};
  std::vector<unsigned long> numbers(found.count);
  if (found.count > 0) {
    std::memcpy(numbers.data(), found.value.get(),
                found.count * sizeof(unsigned long));
  }
  return numbers;
}

bool HasProperty(const X11Display& display, ::Window window, Name property) {
  return Read(display, window, property, AnyPropertyType).type != None;
}

std::string ReadTitle(const X11Display& display, ::Window window) {
  const Atom utf8 = display.atom(Name::kUtf8);
  const Property title = Read(display, window, Name::kTitle, utf8);
  if (title.type != utf8 || title.format != 8) {
    return ReadOldTitle(display.get(), window);
  }
  return {title.value.get(), title.value.get() + title.count};
}

std::string ReadClassName(const X11Display& display, ::Window window) {
  XClassHint hint{};
  if (XGetClassHint(display.get(), window, &hint) == 0) return {};
  const XPtr<char> name(hint.res_name);
  const XPtr<char> className(hint.res_class);
  return className ? className.get() : std::string();
}

}  // namespace linux_capture::targets
