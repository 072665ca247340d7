#include "launch_boundary/pipeline_control.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "base/coded_error.h"
#include "base/stage_log.h"
#include "launch_boundary/pipeline_dump.h"
#include "launch_boundary/repaired_launch.h"
#include "launch_boundary/resource_check.h"
#include "launch_boundary/source_check.h"
#include "launch_boundary/source_watch.h"
#include "launch_boundary/x11_guard.h"
#include "launch_boundary/x11_source_check.h"

namespace linux_capture {
namespace {

// How long a start that is held up keeps others from ending it, and one that
// only settles from looking at it.
constexpr std::chrono::milliseconds kCallersWait{1'000};
constexpr std::chrono::milliseconds kLookersWait{500};

// How often a pipeline that settles is asked, and what its thread has to tell
// it when everything else is used up.
constexpr std::chrono::milliseconds kSettlingLook{200};
constexpr std::chrono::milliseconds kSettlingIsTold{250};

bool IsStartInTheWay() { return g_controlCallers.HaveWaited(kCallersWait); }

bool IsSettlingInTheWay() {
  return IsStartInTheWay() || g_captureCallers.HaveWaited(kLookersWait);
}

GstClockTime AsClockTime(std::chrono::nanoseconds time) {
  return static_cast<GstClockTime>(
      std::max<std::chrono::nanoseconds::rep>(time.count(), 0));
}

// The pipeline for work that may outlive everybody else's interest in it.
std::shared_ptr<GstElement> Share(GstElement* pipeline) {
  return {GST_ELEMENT(gst_object_ref(pipeline)), GstObjectDeleter()};
}

}  // namespace

PipelineControl::PipelineControl(std::string name, PipelineKind kind)
    : name_(std::move(name)), kind_(kind) {
  if (kind == PipelineKind::kX11) guard_ = std::make_shared<X11Guard>();
}

PipelineControl::~PipelineControl() = default;

bool PipelineControl::Do(std::function<void()> work,
                         ExpendableThread::Deadline deadline,
                         bool (*isOver)()) {
  return thread_.Do(
      [guard = guard_, work = std::move(work)] {
        const X11CaptureScope scope(guard.get());
        work();
      },
      deadline, isOver);
}

void PipelineControl::Launch(const std::string& text,
                             const CaptureConfig& config,
                             const StartPatience& patience,
                             GstElementPtr& pipeline) {
  const auto launched = std::make_shared<GstElementPtr>();
  bool isDone = false;
  try {
    isDone = Do([launched, text, kind = kind_,
                 config] { LaunchRepaired(text, kind, config, *launched); },
                patience.deadline(), IsStartInTheWay);
  } catch (...) {
    pipeline = std::move(*launched);
    ThrowIfShortOfDescriptors();
    throw;
  }
  if (!isDone) ThrowHeldUp(nullptr);
  pipeline = std::move(*launched);
}

void PipelineControl::Play(GstElement* pipeline, StartPatience& patience) {
  const std::string label = name_ + " pipeline";
  LogCaptureStage(label + ":set-state-playing:begin");
  const auto change =
      std::make_shared<GstStateChangeReturn>(GST_STATE_CHANGE_FAILURE);
  if (!Do(
          [change, playing = Share(pipeline)] {
            *change = gst_element_set_state(playing.get(), GST_STATE_PLAYING);
          },
          patience.deadline(), IsStartInTheWay)) {
    ThrowHeldUp(pipeline);
  }
  LogCaptureStage(label + ":set-state-playing:result=" +
                  std::to_string(static_cast<int>(*change)));
  if (*change == GST_STATE_CHANGE_FAILURE) {
    ThrowIfShortOfDescriptors();
    throw CodedError(error_code::kStateChangeFailed,
                     label + " failed to enter PLAYING state");
  }
  LogCaptureStage(label + ":get-state:begin");
  const ReachedState reached = Settle(pipeline, patience);
  LogCaptureStage(label + ":get-state:result=" +
                  std::to_string(static_cast<int>(reached.result)) +
                  ":state=" + gst_element_state_get_name(reached.state) +
                  ":pending=" + gst_element_state_get_name(reached.pending));
  if (reached.result == GST_STATE_CHANGE_FAILURE) {
    ThrowIfShortOfDescriptors();
    throw CodedError(error_code::kStateChangeFailed,
                     label + " reported GStreamer state-change failure");
  }
}

// In short looks, so that the thread has ended each of them when nobody waits
// for it any more.
PipelineControl::ReachedState PipelineControl::Settle(GstElement* pipeline,
                                                      StartPatience& patience) {
  using std::chrono::steady_clock;
  const auto begin = steady_clock::now();
  const auto end = begin + patience.settling();
  const auto latest = std::max(patience.deadline(), begin + kSettlingIsTold) +
                      patience.settling();
  const auto reached = std::make_shared<ReachedState>();
  do {
    const auto look = std::min<steady_clock::duration>(
        kSettlingLook, end - steady_clock::now());
    if (!Do(
            [reached, playing = Share(pipeline), longest = AsClockTime(look)] {
              reached->result = gst_element_get_state(
                  playing.get(), &reached->state, &reached->pending, longest);
            },
            latest)) {
      ThrowHeldUp(pipeline);
    }
  } while (reached->result == GST_STATE_CHANGE_ASYNC &&
           steady_clock::now() < end && !IsSettlingInTheWay() &&
           !HasLostFormat(pipeline));
  patience.Extend(std::min<steady_clock::duration>(steady_clock::now() - begin,
                                                   patience.settling()));
  if (!Do(
          [playing = Share(pipeline), name = name_] {
            DumpPipeline(playing.get(),
                         "linux-capture-" + name + "-pipeline-playing");
          },
          latest)) {
    ThrowHeldUp(pipeline);
  }
  return *reached;
}

void PipelineControl::ThrowHeldUp(GstElement* pipeline) {
  LogCaptureStage("pipeline:" + name_ + "-start-given-up");
  if (IsStartInTheWay()) {
    throw CodedError(error_code::kStartInterrupted,
                     "the start was given up: another thread ends it");
  }
  ThrowIfShortOfDescriptors();
  if (kind_ == PipelineKind::kX11) {
    if (!X11ServerAnswers()) {
      throw CodedError(error_code::kDisplayStalled,
                       "the X server does not answer");
    }
  } else if (pipeline != nullptr) {
    ThrowIfPipeWireHoldsUp(pipeline);
  }
  throw CodedError(error_code::kSourceStalled,
                   name_ + " pipeline did not start in time");
}

bool PipelineControl::End(GstElementPtr pipeline,
                          ExpendableThread::Deadline deadline) {
  if (thread_.IsBehind()) deadline = {};
  const auto owner = std::make_shared<GstElementPtr>(std::move(pipeline));
  return Do(
      [owner] {
        if (*owner) gst_element_set_state(owner->get(), GST_STATE_NULL);
        owner->reset();
      },
      deadline);
}

void PipelineControl::Retire(std::shared_ptr<void> used) {
  LogCaptureStage("pipeline:" + name_ + "-given-up");
  thread_.Leave([used = std::move(used), guard = std::move(guard_),
                 name = std::move(name_)] {
    LogCaptureStage("pipeline:" + name + "-came-back");
  });
}

bool EndPipeline(std::unique_ptr<PipelineControl>& control,
                 GstElementPtr& pipeline, ExpendableThread::Deadline deadline) {
  if (!control) {
    if (pipeline) gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    pipeline.reset();
    return true;
  }
  if (!control->End(std::move(pipeline), deadline)) return false;
  control.reset();
  return true;
}

}  // namespace linux_capture
