#ifndef LINUX_CAPTURE_BASE_UNIQUE_FD_H_
#define LINUX_CAPTURE_BASE_UNIQUE_FD_H_

#include <unistd.h>

#include <utility>

namespace linux_capture {

// Owner of one file descriptor; -1 means none.
class UniqueFd {
 public:
  UniqueFd() noexcept = default;
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = other.release();
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  explicit operator bool() const noexcept { return fd_ >= 0; }
  [[nodiscard]] int get() const noexcept { return fd_; }
  int release() noexcept { return std::exchange(fd_, -1); }
  void reset() noexcept {
    if (fd_ >= 0) close(std::exchange(fd_, -1));
  }

 private:
  int fd_ = -1;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_UNIQUE_FD_H_
