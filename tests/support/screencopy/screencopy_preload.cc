// Loaded into xdg-desktop-portal-wlr before its other libraries.
//
// A compositor on the software renderer offers a screen's picture in shared
// memory only, and leaves out the event that would offer it as a dma-buf.
// Version 0.7 of the portal's backend waits for both offers and gives up
// without the second, although it then takes shared memory. This adds the
// second one.

#include <dlfcn.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" {
struct wl_proxy;
using AnyEvent = void (*)();
// The library's own name. NOLINTNEXTLINE(readability-identifier-naming)
[[gnu::visibility("default")]] int wl_proxy_add_listener(
    wl_proxy* proxy, AnyEvent* implementation, void* data);
}

namespace {

using BufferEvent = void (*)(void* data, wl_proxy* frame, std::uint32_t format,
                             std::uint32_t width, std::uint32_t height,
                             std::uint32_t stride);
using DmaBufEvent = void (*)(void* data, wl_proxy* frame, std::uint32_t format,
                             std::uint32_t width, std::uint32_t height);
using AddListener = int (*)(wl_proxy*, AnyEvent*, void*);
using GetClass = const char* (*)(wl_proxy*);

// The events of zwlr_screencopy_frame_v1 in their order.
constexpr std::size_t kBuffer = 0;
constexpr std::size_t kLinuxDmaBuf = 5;
constexpr std::size_t kEventCount = 7;

// "XR24", the name of 32-bit RGB among dma-buf formats.
constexpr std::uint32_t kFormat = 0x34325258;

// The program has one listener for all frames.
std::array<AnyEvent, kEventCount> g_original{};
std::array<AnyEvent, kEventCount> g_replaced{};

void OfferBoth(void* data, wl_proxy* frame, std::uint32_t format,
               std::uint32_t width, std::uint32_t height,
               std::uint32_t stride) {
  reinterpret_cast<BufferEvent>(g_original[kBuffer])(data, frame, format, width,
                                                     height, stride);
  reinterpret_cast<DmaBufEvent>(g_original[kLinuxDmaBuf])(data, frame, kFormat,
                                                          width, height);
}

template <typename Function>
Function NextSymbol(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int wl_proxy_add_listener(wl_proxy* proxy, AnyEvent* implementation,
                          void* data) {
  static const auto kGetClass = NextSymbol<GetClass>("wl_proxy_get_class");
  static const auto kAddListener =
      NextSymbol<AddListener>("wl_proxy_add_listener");
  if (std::string_view(kGetClass(proxy)) != "zwlr_screencopy_frame_v1") {
    return kAddListener(proxy, implementation, data);
  }
  for (std::size_t event = 0; event < kEventCount; ++event) {
    g_original[event] = implementation[event];
  }
  g_replaced = g_original;
  g_replaced[kBuffer] = reinterpret_cast<AnyEvent>(OfferBoth);
  return kAddListener(proxy, g_replaced.data(), data);
}
