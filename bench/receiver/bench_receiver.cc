// The other side of a published capture, as cheap as it can be: nothing is
// decoded. Speaks to its host as linux-capture-transport does, and writes the
// header of each packet of media, with the time of its arrival, to
// descriptor 3.

#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iostream>
#include <vector>

#include "common/frames.h"
#include "transport/transport.h"

namespace linux_capture::bench {
namespace {

using programs::Bytes;

constexpr int kArrivals = 3;
constexpr guint kTellEveryMs = 50;
// With every header extension that a publication uses.
constexpr std::size_t kHeaderSize = 28;

// In the machine's order: nanoseconds of the monotonic clock, then the start of
// the packet. bench/lib/publish_receiver.mjs reads it.
class Arrivals {
 public:
  void Add(Bytes packet) {
    const std::int64_t now =
        std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::steady_clock::now().time_since_epoch())
            .count();
    const std::size_t start = bytes_.size();
    bytes_.resize(start + sizeof(now) + kHeaderSize);
    std::memcpy(bytes_.data() + start, &now, sizeof(now));
    std::copy_n(
        packet.begin(), std::min(packet.size(), kHeaderSize),
        bytes_.begin() + static_cast<std::ptrdiff_t>(start + sizeof(now)));
  }

  void Tell() {
    std::size_t written = 0;
    while (written < bytes_.size()) {
      const ssize_t count =
          write(kArrivals, bytes_.data() + written, bytes_.size() - written);
      if (count <= 0) break;
      written += static_cast<std::size_t>(count);
    }
    bytes_.clear();
  }

 private:
  std::vector<std::uint8_t> bytes_;
};

gboolean OnTime(gpointer arrivals) {
  static_cast<Arrivals*>(arrivals)->Tell();
  return G_SOURCE_CONTINUE;
}

}  // namespace
}  // namespace linux_capture::bench

int main() {
  using linux_capture::bench::Arrivals;
  try {
    Arrivals arrivals;
    linux_capture::transport::Transport transport(
        STDIN_FILENO, STDOUT_FILENO,
        [&](linux_capture::programs::Bytes packet) { arrivals.Add(packet); });
    g_timeout_add(linux_capture::bench::kTellEveryMs,
                  linux_capture::bench::OnTime, &arrivals);
    transport.Run();
    return 0;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
