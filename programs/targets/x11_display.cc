#include "targets/x11_display.h"

#include <X11/Xutil.h>

#include <cstring>

namespace linux_capture::targets {
namespace {

constexpr long kMaxLongs = 65'536;

struct Property {
  Atom type = None;
  int format = 0;
  unsigned long count = 0;
  XPtr<unsigned char> value;
};

Property Read(Display* display, ::Window window, const char* name, Atom type) {
  Property property;
  unsigned long left = 0;
  unsigned char* value = nullptr;
  const int result = XGetWindowProperty(
      display, window, XInternAtom(display, name, False), 0, kMaxLongs, False,
      type, &property.type, &property.format, &property.count, &left, &value);
  property.value.reset(value);
  if (result != Success || !property.value) property.count = 0;
  return property;
}

// An old title is in the encoding that its property names.
std::string ReadOldTitle(Display* display, ::Window window) {
  XTextProperty text{};
  if (XGetWMName(display, window, &text) == 0) return {};
  const XPtr<unsigned char> owned(text.value);
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

}  // namespace

std::vector<unsigned long> ReadNumbers(Display* display, ::Window window,
                                       const char* property) {
  const Property found = Read(display, window, property, AnyPropertyType);
  if (found.format != 32) return {};
  std::vector<unsigned long> numbers(found.count);
  if (found.count > 0) {
    std::memcpy(numbers.data(), found.value.get(),
                found.count * sizeof(unsigned long));
  }
  return numbers;
}

bool HasProperty(Display* display, ::Window window, const char* property) {
  return Read(display, window, property, AnyPropertyType).type != None;
}

std::string ReadTitle(Display* display, ::Window window) {
  const Atom utf8 = XInternAtom(display, "UTF8_STRING", False);
  const Property title = Read(display, window, "_NET_WM_NAME", utf8);
  if (title.type != utf8 || title.format != 8) {
    return ReadOldTitle(display, window);
  }
  return {title.value.get(), title.value.get() + title.count};
}

std::string ReadClassName(Display* display, ::Window window) {
  XClassHint hint{};
  if (XGetClassHint(display, window, &hint) == 0) return {};
  const XPtr<char> name(hint.res_name);
  const XPtr<char> className(hint.res_class);
  return className ? className.get() : std::string();
}

}  // namespace linux_capture::targets
