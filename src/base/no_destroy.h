#ifndef LINUX_CAPTURE_BASE_NO_DESTROY_H_
#define LINUX_CAPTURE_BASE_NO_DESTROY_H_

#include <new>
#include <utility>

namespace linux_capture {

// Holds a process-wide object that is constructed but never destroyed. Threads
// of GStreamer may still run while the process exits, so nothing they can
// reach may have a static destructor.
template <typename T>
class NoDestroy {
 public:
  template <typename... Args>
  explicit NoDestroy(Args&&... args) {
    ::new (static_cast<void*>(&storage_)) T(std::forward<Args>(args)...);
  }
  NoDestroy(const NoDestroy&) = delete;
  NoDestroy& operator=(const NoDestroy&) = delete;
  ~NoDestroy() = default;

  T& operator*() noexcept { return *Pointer(); }
  T* operator->() noexcept { return Pointer(); }

 private:
  T* Pointer() noexcept {
    return std::launder(reinterpret_cast<T*>(&storage_));
  }

  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_NO_DESTROY_H_
