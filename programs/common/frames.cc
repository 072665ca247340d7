#include "common/frames.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "common/program_error.h"

namespace linux_capture::programs {
namespace {

constexpr std::size_t kHeaderSize = 4;
constexpr std::size_t kMostWaiting = 262'144;

std::size_t LengthAt(const std::uint8_t* bytes) {
  return std::size_t{bytes[0]} << 24 | std::size_t{bytes[1]} << 16 |
         std::size_t{bytes[2]} << 8 | std::size_t{bytes[3]};
}

}  // namespace

void FrameReader::Add(Bytes bytes,
                      const std::function<void(const Frame&)>& take) {
  waiting_.insert(waiting_.end(), bytes.begin(), bytes.end());
  std::size_t position = 0;
  while (waiting_.size() - position >= kHeaderSize) {
    const std::size_t length = LengthAt(waiting_.data() + position);
    if (length == 0 || length > kLongestFrame) {
      throw ProgramError(kStatusUsage, "the input holds no frames");
    }
    if (waiting_.size() - position - kHeaderSize < length) break;
    const Bytes frame(waiting_.data() + position + kHeaderSize, length);
    position += kHeaderSize + length;
    take({static_cast<char>(frame.front()), frame.subspan(1)});
  }
  waiting_.erase(waiting_.begin(),
                 waiting_.begin() + static_cast<std::ptrdiff_t>(position));
}

FrameWriter::FrameWriter(int fd) : fd_(fd) {
  fcntl(fd_, F_SETFL, fcntl(fd_, F_GETFL) | O_NONBLOCK);
}

void FrameWriter::WriteControl(char kind, std::string_view payload) {
  Append(kind, {reinterpret_cast<const std::uint8_t*>(payload.data()),
                payload.size()});
}

void FrameWriter::WritePacket(char kind, Bytes payload) {
  if (waiting_.size() < kMostWaiting) Append(kind, payload);
}

void FrameWriter::Append(char kind, Bytes payload) {
  const std::size_t length = payload.size() + 1;
  for (const int shift : {24, 16, 8, 0}) {
    waiting_.push_back(static_cast<std::uint8_t>(length >> shift));
  }
  waiting_.push_back(static_cast<std::uint8_t>(kind));
  waiting_.insert(waiting_.end(), payload.begin(), payload.end());
}

bool FrameWriter::Flush() {
  std::size_t written = 0;
  bool isRead = true;
  while (written < waiting_.size()) {
    const ssize_t count =
        write(fd_, waiting_.data() + written, waiting_.size() - written);
    if (count > 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      isRead = errno == EAGAIN || errno == EWOULDBLOCK;
      break;
    }
  }
  waiting_.erase(waiting_.begin(),
                 waiting_.begin() + static_cast<std::ptrdiff_t>(written));
  return isRead;
}

}  // namespace linux_capture::programs
