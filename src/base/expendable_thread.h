#ifndef LINUX_CAPTURE_BASE_EXPENDABLE_THREAD_H_
#define LINUX_CAPTURE_BASE_EXPENDABLE_THREAD_H_

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

namespace linux_capture {

// A thread for work that may not come back, such as a question to a display
// server or a sound daemon that stands still, which no library can be told to
// give up. Whoever needs the work waits as long as is reasonable and goes on
// without it; the thread ends when it can.
class ExpendableThread {
 public:
  using Deadline = std::chrono::steady_clock::time_point;

  // Throws std::system_error when no thread can be started.
  ExpendableThread();
  ExpendableThread(const ExpendableThread&) = delete;
  ExpendableThread& operator=(const ExpendableThread&) = delete;
  // What was given is still done, but not waited for.
  ~ExpendableThread();

  // Does `work` after all that was given before. True when it ended before
  // `deadline`, then also passing on what it threw. After false it may still
  // be done at any later time, so it must own all that it uses. The wait is
  // also over when `isOver` says so, which is asked again and again.
  bool Do(std::function<void()> work, Deadline deadline,
          bool (*isOver)() = nullptr);

  // Does `work` after all that was given before; nobody waits. What it throws
  // is lost.
  void Leave(std::function<void()> work);

  // Whether work that was not waited for to its end is still not done.
  [[nodiscard]] bool IsBehind() const;

 private:
  struct Shared;
  struct Task;

  static void Work(const std::shared_ptr<Shared>& shared);
  void Give(std::shared_ptr<Task> task);

  std::shared_ptr<Shared> shared_;
  std::thread thread_;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_EXPENDABLE_THREAD_H_
