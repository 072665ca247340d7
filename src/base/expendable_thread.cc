#include "base/expendable_thread.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <utility>

#include "base/mutex.h"

namespace linux_capture {

struct ExpendableThread::Task {
  std::function<void()> work;
  std::exception_ptr failure;
  bool isDone = false;
};

// Outlives its owner for as long as the thread is held up.
struct ExpendableThread::Shared {
  // Never held while work is done; only `isOver` of a wait is asked under it.
  Mutex mutex;
  std::condition_variable_any given;
  std::condition_variable_any done;
  // The first one is being done.
  std::deque<std::shared_ptr<Task>> tasks GUARDED_BY(mutex);
  bool isEnding GUARDED_BY(mutex) = false;

  // The next task, or null when there will be none.
  std::shared_ptr<Task> WaitForTask() {
    const MutexLock lock(mutex);
    while (tasks.empty() && !isEnding) given.wait(mutex);
    return tasks.empty() ? nullptr : tasks.front();
  }

  bool WaitFor(const Task& task, Deadline deadline, bool (*isOver)())
      REQUIRES(mutex) {
    constexpr std::chrono::milliseconds kLook{20};
    const auto isDone = [&task] { return task.isDone; };
    if (isOver == nullptr) return done.wait_until(mutex, deadline, isDone);
    while (!isOver()) {
      const Deadline next = std::chrono::steady_clock::now() + kLook;
      if (done.wait_until(mutex, std::min(deadline, next), isDone)) return true;
      if (next >= deadline) return false;
    }
    return task.isDone;
  }
};

ExpendableThread::ExpendableThread() : shared_(std::make_shared<Shared>()) {
  thread_ = std::thread([shared = shared_] { Work(shared); });
}

ExpendableThread::~ExpendableThread() {
  bool isIdle = false;
  {
    const MutexLock lock(shared_->mutex);
    shared_->isEnding = true;
    isIdle = shared_->tasks.empty();
  }
  shared_->given.notify_all();
  if (isIdle) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

void ExpendableThread::Work(const std::shared_ptr<Shared>& shared) {
  while (const std::shared_ptr<Task> task = shared->WaitForTask()) {
    std::exception_ptr failure;
    try {
      task->work();
    } catch (...) {
      failure = std::current_exception();
    }
    // What the work owned goes before anybody is told that it is done.
    task->work = nullptr;
    const MutexLock lock(shared->mutex);
    task->failure = std::move(failure);
    task->isDone = true;
    shared->tasks.pop_front();
    shared->done.notify_all();
  }
}

void ExpendableThread::Give(std::shared_ptr<Task> task) {
  {
    const MutexLock lock(shared_->mutex);
    shared_->tasks.push_back(std::move(task));
  }
  shared_->given.notify_all();
}

bool ExpendableThread::Do(std::function<void()> work, Deadline deadline,
                          bool (*isOver)()) {
  const auto task = std::make_shared<Task>();
  task->work = std::move(work);
  Give(task);
  std::exception_ptr failure;
  {
    const MutexLock lock(shared_->mutex);
    if (!shared_->WaitFor(*task, deadline, isOver)) return false;
    failure = std::move(task->failure);
  }
  if (failure) std::rethrow_exception(std::move(failure));
  return true;
}

void ExpendableThread::Leave(std::function<void()> work) {
  auto task = std::make_shared<Task>();
  task->work = std::move(work);
  Give(std::move(task));
}

bool ExpendableThread::IsBehind() const {
  const MutexLock lock(shared_->mutex);
  return !shared_->tasks.empty();
}

}  // namespace linux_capture
