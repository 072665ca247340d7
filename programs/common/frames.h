#ifndef LINUX_CAPTURE_PROGRAMS_COMMON_FRAMES_H_
#define LINUX_CAPTURE_PROGRAMS_COMMON_FRAMES_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace linux_capture::programs {

using Bytes = std::span<const std::uint8_t>;

// What goes over standard input and output: a length of four bytes, the highest
// first, then as many bytes, of which the first is the kind. docs/programs.md
// lists the kinds.
struct Frame {
  char kind;
  Bytes payload;
};

// No datagram and no description is longer.
inline constexpr std::size_t kLongestFrame = 65'536;

// Cuts a stream of bytes into frames.
class FrameReader {
 public:
  // Calls `take` for each frame that is whole now; its payload lasts for the
  // call. Throws a ProgramError for a length that no frame has.
  void Add(Bytes bytes, const std::function<void(const Frame&)>& take);

 private:
  std::vector<std::uint8_t> waiting_;
};

// Frames to a descriptor that does not block: what its reader leaves standing
// waits here, up to a limit.
class FrameWriter {
 public:
  // The descriptor is set to not block.
  explicit FrameWriter(int fd);

  // Control frames are always kept, packets only while little waits: reports
  // that are late are of no use.
  void WriteControl(char kind, std::string_view payload);
  void WritePacket(char kind, Bytes payload);

  // Writes what waits. Returns false when nobody reads any more.
  bool Flush();
  [[nodiscard]] bool has_waiting() const { return !waiting_.empty(); }

 private:
  void Append(char kind, Bytes payload);

  int fd_;
  std::vector<std::uint8_t> waiting_;
};

}  // namespace linux_capture::programs

#endif  // LINUX_CAPTURE_PROGRAMS_COMMON_FRAMES_H_
