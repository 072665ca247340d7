#include "launch_boundary/repairs.h"

#include "base/debug_category.h"
#include "launch_boundary/buffer_copy.h"
#include "launch_boundary/colorimetry.h"
#include "launch_boundary/colour_rounding.h"
#include "launch_boundary/conversion_gate.h"
#include "launch_boundary/empty_mix.h"
#include "launch_boundary/first_picture.h"
#include "launch_boundary/format_watch.h"
#include "launch_boundary/held_ending.h"
#include "launch_boundary/keepalive.h"
#include "launch_boundary/mix_latency.h"
#include "launch_boundary/mix_order.h"
#include "launch_boundary/picture_check.h"
#include "launch_boundary/picture_crop.h"
#include "launch_boundary/pipeline_clock.h"
#include "launch_boundary/repeated_pictures.h"
#include "launch_boundary/scaling_method.h"
#include "launch_boundary/screen_converter.h"
#include "launch_boundary/screen_scaler.h"
#include "launch_boundary/sink_preroll.h"
#include "launch_boundary/source_check.h"
#include "launch_boundary/source_disconnect.h"
#include "launch_boundary/source_fallback.h"
#include "launch_boundary/source_rate.h"
#include "launch_boundary/source_timestamps.h"
#include "launch_boundary/source_watch.h"
#include "launch_boundary/stale_blocks.h"
#include "launch_boundary/videorate_latency.h"
#include "launch_boundary/x11_guard.h"
#include "launch_boundary/x11_picture_hold.h"
#include "launch_boundary/x11_stall.h"

namespace linux_capture {
namespace {

// What differs between the kinds.

void FixSourceRate(GstElement* pipeline, const RepairContext& context) {
  RequireHighestRate(pipeline, context.config);
}

void AskForSourceRate(GstElement* pipeline, const RepairContext& context) {
  PreferHighestRate(pipeline, context.config);
}

void WaitBoundedly(GstElement* pipeline) {
  UseMonotonicClock(pipeline, ClockWaits::kBounded);
}

void WaitForMixer(GstElement* pipeline) {
  UseMonotonicClock(pipeline, ClockWaits::kAny);
}

void FillLongGaps(GstElement* pipeline) {
  SpareConversions(pipeline,
                   DeliverPicturesPromptly(pipeline, kLongestFilledX11Gap));
}

void FillShortGaps(GstElement* pipeline) {
  DeliverPicturesPromptly(pipeline, kLongestFilledGap);
}

void TouchThreeLayers(GstElement* pipeline, const RepairContext& context) {
  AvoidStaleBlocks(pipeline, context.config);
}

void KeepOnScreen(GstElement* pipeline, const RepairContext& context) {
  if (context.screen) {
    LimitToScreen(pipeline, context.config, *context.screen);
  }
}

// Some have to come before others; repairs_test.cc has which and why.

constexpr Repair kX11Repairs[] = {
    {"colorimetry", PinColorimetry},
    {"source_rate", FixSourceRate},
    {"first_picture", BeginWithFirstPicture},
    {"scaling_method", ScaleFromAllPixels},
    {"screen_scaler", ReplaceScalers},
    {"videorate_latency", FillLongGaps},
    {"colour_rounding", CorrectConversionRounding},
    {"screen_converter", InsertScreenConverters},
    {"stale_blocks", TouchThreeLayers},
    {"x11_stall", WatchX11Stalls},
    {"x11_guard", WatchX11Pipeline},
    {"x11_picture_hold", HoldRefusedPictures},
    {"x11_source_check", KeepOnScreen},
};

constexpr Repair kScreenCastRepairs[] = {
    {"source_fallback", ForbidSourceFallback},
    {"source_watch", WatchPipeWireSources},
    {"source_check", RequirePipeWireTargets},
    {"source_disconnect", OutliveFormatChanges},
    {"held_ending", HoldFormatEndings},
    {"pipeline_clock", WaitBoundedly},
    {"colorimetry", PinColorimetry},
    {"source_rate", AskForSourceRate},
    {"first_picture", BeginWithFirstPicture},
    {"scaling_method", ScaleFromAllPixels},
    {"screen_scaler", ReplaceScalers},
    {"format_watch", ReportFormatChanges},
    {"picture_check", DropUnreadablePictures},
    {"source_timestamps", KeepTimestampsSane},
    {"buffer_copy", OutliveProducers},
    {"keepalive", RepeatStillPictures},
    {"repeated_pictures", MarkRepetitions},
    {"picture_crop", CropToWindows},
    {"videorate_latency", FillShortGaps},
    {"colour_rounding", CorrectConversionRounding},
    {"screen_converter", InsertScreenConverters},
    {"stale_blocks", TouchThreeLayers},
};

// The pictures stay in graphics memory.
constexpr Repair kHardwareRepairs[] = {
    {"source_fallback", ForbidSourceFallback},
    {"source_watch", WatchPipeWireSources},
    {"source_check", RequirePipeWireTargets},
    {"source_disconnect", OutliveFormatChanges},
    {"held_ending", HoldFormatEndings},
    {"pipeline_clock", WaitBoundedly},
};

constexpr Repair kSoundRepairs[] = {
    {"source_fallback", ForbidSourceFallback},
    {"source_watch", WatchPipeWireSources},
    {"source_check", RequirePipeWireTargets},
    {"empty_mix", FeedEmptyMix},
    {"pipeline_clock", WaitForMixer},
    {"mix_order", OrderMix},
    {"mix_latency", WaitForLateSound},
    {"buffer_copy", OutliveProducers},
    {"sink_preroll", DeliverBeforePreroll},
};

}  // namespace

void Repair::Apply(GstElement* pipeline, const RepairContext& context) const {
  if (applyToPipeline_ != nullptr) {
    applyToPipeline_(pipeline);
  } else {
    applyInContext_(pipeline, context);
  }
}

std::span<const Repair> RepairsFor(PipelineKind kind) {
  switch (kind) {
    case PipelineKind::kX11:
      return kX11Repairs;
    case PipelineKind::kScreenCast:
      return kScreenCastRepairs;
    case PipelineKind::kHardware:
      return kHardwareRepairs;
    case PipelineKind::kSound:
      return kSoundRepairs;
  }
  // Untested: for the compiler alone, above are all there are.
  return {};
}

void ApplyRepairs(GstElement* pipeline, PipelineKind kind,
                  const RepairContext& context) {
  for (const Repair& repair : RepairsFor(kind)) {
    GST_CAT_DEBUG_OBJECT(DebugCategory(), pipeline, "repair %.*s",
                         static_cast<int>(repair.name().size()),
                         repair.name().data());
    repair.Apply(pipeline, context);
  }
}

}  // namespace linux_capture
