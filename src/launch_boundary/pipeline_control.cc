#include "launch_boundary/pipeline_control.h"

#include <system_error>
#include <utility>

#include "base/coded_error.h"
#include "base/stage_log.h"
#include "launch_boundary/pipeline_dump.h"
#include "launch_boundary/repaired_launch.h"
#include "launch_boundary/resource_check.h"
#include "launch_boundary/source_check.h"
#include "launch_boundary/x11_guard.h"
#include "launch_boundary/x11_source_check.h"

namespace linux_capture {
namespace {

// For the thread to tell that a pipeline has settled, or that its time is over.
constexpr std::chrono::milliseconds kSettlingIsTold{500};

GstClockTime AsClockTime(std::chrono::milliseconds time) {
  return static_cast<GstClockTime>(time.count()) * GST_MSECOND;
}

// The pipeline for work that may outlive everybody else's interest in it.
std::shared_ptr<GstElement> Share(GstElement* pipeline) {
  return {GST_ELEMENT(gst_object_ref(pipeline)), GstObjectDeleter()};
}

struct ReachedState {
  GstStateChangeReturn result = GST_STATE_CHANGE_FAILURE;
  GstState state = GST_STATE_NULL;
  GstState pending = GST_STATE_VOID_PENDING;
};

}  // namespace

PipelineControl::PipelineControl(std::string name, PipelineKind kind)
    : name_(std::move(name)), kind_(kind) {
  if (kind == PipelineKind::kX11) guard_ = std::make_shared<X11Guard>();
}

PipelineControl::~PipelineControl() = default;

bool PipelineControl::Do(std::function<void()> work,
                         ExpendableThread::Deadline deadline) {
  return thread_.Do(
      [guard = guard_, work = std::move(work)] {
        const X11CaptureScope scope(guard.get());
        work();
      },
      deadline);
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
                patience.deadline());
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
          patience.deadline())) {
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
  const auto begin = std::chrono::steady_clock::now();
  const auto reached = std::make_shared<ReachedState>();
  if (!Do(
          [reached, playing = Share(pipeline), name = name_,
           longest = AsClockTime(patience.settling())] {
            reached->result = gst_element_get_state(
                playing.get(), &reached->state, &reached->pending, longest);
            DumpPipeline(playing.get(),
                         "linux-capture-" + name + "-pipeline-playing");
          },
          begin + patience.settling() + kSettlingIsTold)) {
    ThrowHeldUp(pipeline);
  }
  patience.Extend(std::chrono::steady_clock::now() - begin);
  LogCaptureStage(label + ":get-state:result=" +
                  std::to_string(static_cast<int>(reached->result)) +
                  ":state=" + gst_element_state_get_name(reached->state) +
                  ":pending=" + gst_element_state_get_name(reached->pending));
  if (reached->result == GST_STATE_CHANGE_FAILURE) {
    ThrowIfShortOfDescriptors();
    throw CodedError(error_code::kStateChangeFailed,
                     label + " reported GStreamer state-change failure");
  }
}

void PipelineControl::ThrowHeldUp(GstElement* pipeline) {
  LogCaptureStage("pipeline:" + name_ + "-start-given-up");
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
