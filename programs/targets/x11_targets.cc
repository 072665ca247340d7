#include "targets/x11_targets.h"

#include <X11/extensions/Xrandr.h>

#include <cstddef>
#include <optional>
#include <set>

#include "targets/x11_display.h"

namespace linux_capture::targets {
namespace {

using XWindow = ::Window;

struct MonitorsDeleter {
  void operator()(XRRMonitorInfo* monitors) const noexcept {
    XRRFreeMonitors(monitors);
  }
};

std::optional<XWindowAttributes> AttributesOf(Display* display,
                                              XWindow window) {
  XWindowAttributes attributes{};
  if (XGetWindowAttributes(display, window, &attributes) == 0) {
    return std::nullopt;
  }
  return attributes;
}

bool CanBeCaptured(const std::optional<XWindowAttributes>& attributes) {
  return attributes && attributes->map_state == IsViewable &&
         attributes->c_class == InputOutput;
}

std::vector<Monitor> ListMonitors(Display* display, XWindow root) {
  std::vector<Monitor> monitors;
  int event = 0;
  int error = 0;
  int major = 0;
  int minor = 0;
  const bool hasMonitors = XRRQueryExtension(display, &event, &error) != 0 &&
                           XRRQueryVersion(display, &major, &minor) != 0 &&
                           (major > 1 || (major == 1 && minor >= 5));
  int count = 0;
  const std::unique_ptr<XRRMonitorInfo, MonitorsDeleter> list(
      hasMonitors ? XRRGetMonitors(display, root, True, &count) : nullptr);
  for (int i = 0; list && i < count; ++i) {
    const XRRMonitorInfo& info = list.get()[i];
    const XPtr<char> name(XGetAtomName(display, info.name));
    monitors.push_back({name ? name.get() : std::string(),
                        info.primary != 0,
                        {info.x, info.y, info.width, info.height}});
  }
  if (monitors.empty()) {
    const auto attributes = AttributesOf(display, root);
    if (attributes) {
      monitors.push_back(
          {"screen", true, {0, 0, attributes->width, attributes->height}});
    }
  }
  return monitors;
}

std::vector<XWindow> ChildrenOf(Display* display, XWindow window) {
  XWindow root = None;
  XWindow parent = None;
  XWindow* children = nullptr;
  unsigned int count = 0;
  if (XQueryTree(display, window, &root, &parent, &children, &count) == 0) {
    return {};
  }
  const XPtr<XWindow> owned(children);
  return {children, children + count};
}

// The application's window in a frame that a window manager put around it, by
// the property that window managers give it. A frame is shallow; the limit is
// for a tree that somebody built for no good.
XWindow FindClient(const X11Display& display, XWindow window, int levels = 8) {
  if (HasProperty(display, window, Name::kState)) return window;
  if (levels == 0) return None;
  for (const XWindow child : ChildrenOf(display.get(), window)) {
    const XWindow client = FindClient(display, child, levels - 1);
    if (client != None) return client;
  }
  return None;
}

std::vector<XWindow> ListClients(const X11Display& display, XWindow root,
                                 const std::function<void()>& onStep) {
  std::vector<XWindow> clients = ReadNumbers(display, root, Name::kClientList);
  if (!clients.empty()) return clients;
  for (const XWindow child : ChildrenOf(display.get(), root)) {
    onStep();
    if (!CanBeCaptured(AttributesOf(display.get(), child))) continue;
    const XWindow client = FindClient(display, child);
    clients.push_back(client == None ? child : client);
  }
  return clients;
}

std::optional<Window> Describe(const X11Display& display, XWindow root,
                               XWindow id) {
  const auto attributes = AttributesOf(display.get(), id);
  if (!CanBeCaptured(attributes)) return std::nullopt;
  Window window;
  window.id = id;
  window.geometry.width = attributes->width;
  window.geometry.height = attributes->height;
  XWindow child = None;
  if (XTranslateCoordinates(display.get(), id, root, 0, 0, &window.geometry.x,
                            &window.geometry.y, &child) == 0) {
    return std::nullopt;
  }
  window.title = ReadTitle(display, id);
  window.className = ReadClassName(display, id);
  const auto process = ReadNumbers(display, id, Name::kProcess);
  if (!process.empty()) {
    window.processId = static_cast<std::uint32_t>(process.front());
  }
  return window;
}

}  // namespace

X11Targets ListX11Targets(const std::function<void()>& onStep,
                          const std::function<void()>& onLost) {
  const X11Display display(onLost);
  const XWindow root = DefaultRootWindow(display.get());
  X11Targets targets;
  targets.monitors = ListMonitors(display.get(), root);
  std::set<XWindow> seen;
  for (const XWindow client : ListClients(display, root, onStep)) {
    onStep();
    if (!seen.insert(client).second) continue;
    const auto window = Describe(display, root, client);
    if (window) targets.windows.push_back(*window);
  }
  return targets;
}

}  // namespace linux_capture::targets
