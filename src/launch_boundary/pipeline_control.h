#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_CONTROL_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_CONTROL_H_

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "base/capture_mutex.h"
#include "base/expendable_thread.h"
#include "base/gst_handles.h"
#include "base/no_destroy.h"
#include "config/capture_config.h"
#include "launch_boundary/repairs.h"

namespace linux_capture {

class X11Guard;

// How long one call that starts something may be held up from outside: by
// other callers, by an earlier capture that does not end, and by each pipeline
// that it starts. What a pipeline may take to settle in PLAYING comes on top.
class StartPatience {
 public:
  static constexpr std::chrono::milliseconds kStart{3'500};
  static constexpr std::chrono::milliseconds kSettling{5'000};
  // What the pipelines get when others have used up the rest.
  static constexpr std::chrono::milliseconds kLeast{1'500};

  explicit StartPatience(std::chrono::milliseconds start = kStart,
                         std::chrono::milliseconds settling = kSettling)
      : deadline_(std::chrono::steady_clock::now() + start),
        settling_(settling) {}

  [[nodiscard]] std::chrono::milliseconds settling() const { return settling_; }

  [[nodiscard]] ExpendableThread::Deadline deadline() const {
    return deadline_;
  }
  void KeepLeast() {
    deadline_ = std::max(deadline_, std::chrono::steady_clock::now() + kLeast);
  }
  void Extend(std::chrono::steady_clock::duration time) { deadline_ += time; }

 private:
  ExpendableThread::Deadline deadline_;
  std::chrono::milliseconds settling_;
};

// Launching a pipeline and every change of its state may wait for a display
// server or a sound daemon, and for ever when that one stands still. So all of
// it happens on a thread of the pipeline's own, and the JavaScript thread waits
// for a limited time. A pipeline that is given up is "retired": its thread owns
// it with all that it uses, brings it to NULL when it can, and ends.
//
// The capture mutex is held by the caller, who waits; the thread itself takes
// no mutex that others hold while they wait.
class PipelineControl {
 public:
  // `name` is "video" or "audio". Throws std::system_error when there can be no
  // thread.
  PipelineControl(std::string name, PipelineKind kind);
  PipelineControl(const PipelineControl&) = delete;
  PipelineControl& operator=(const PipelineControl&) = delete;
  ~PipelineControl();

  // As LaunchRepaired. Throws CodedError saying who held it up, then without a
  // pipeline, when that took too long, or when a caller waits who will end it
  // anyway.
  void Launch(const std::string& text, const CaptureConfig& config,
              const StartPatience& patience, GstElementPtr& pipeline);

  // Brings `pipeline` to PLAYING, waiting as long as it may settle for an
  // asynchronous change; one that is still under way then, or when others wait
  // for the capture, counts as success and may fail later on the bus. Throws
  // CodedError.
  void Play(GstElement* pipeline, StartPatience& patience);

  // Brings the pipeline to NULL and lets go of it. False when that has not
  // happened by `deadline`, or when the pipeline is known to be stuck: then it
  // has to be retired.
  bool End(GstElementPtr pipeline, ExpendableThread::Deadline deadline);

  // Leaves what End began to the thread, with what the pipeline still uses.
  void Retire(std::shared_ptr<void> used);

 private:
  bool Do(std::function<void()> work, ExpendableThread::Deadline deadline,
          bool (*isOver)() = nullptr);
  // What became of a change of state that was under way.
  struct ReachedState {
    GstStateChangeReturn result = GST_STATE_CHANGE_FAILURE;
    GstState state = GST_STATE_NULL;
    GstState pending = GST_STATE_VOID_PENDING;
  };

  ReachedState Settle(GstElement* pipeline, StartPatience& patience);
  [[noreturn]] void ThrowHeldUp(GstElement* pipeline);

  std::string name_;
  PipelineKind kind_;
  std::shared_ptr<X11Guard> guard_;  // of X11 pipelines
  ExpendableThread thread_;
};

inline NoDestroy<std::unique_ptr<PipelineControl>> g_videoControl
    GUARDED_BY(g_mutex);
inline NoDestroy<std::unique_ptr<PipelineControl>> g_audioControl
    GUARDED_BY(g_mutex);

// PipelineControl::End for a pipeline that may be missing, or may have come
// without a control. After true both are gone.
bool EndPipeline(std::unique_ptr<PipelineControl>& control,
                 GstElementPtr& pipeline, ExpendableThread::Deadline deadline);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_PIPELINE_CONTROL_H_
