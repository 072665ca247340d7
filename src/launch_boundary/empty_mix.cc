#include "launch_boundary/empty_mix.h"

#include "base/coded_error.h"
#include "base/glib_handles.h"
#include "base/gst_handles.h"

namespace linux_capture {
namespace {

// What the sources of a mix bring to it.
constexpr const char* kSilence =
    "audiotestsrc wave=silence is-live=true ! capsfilter "
    "caps=audio/x-raw,format=S16LE,rate=48000,channels=2,layout=interleaved";

}  // namespace

void FeedEmptyMix(GstElement* pipeline) {
  const GstElementPtr mixer = FindElement(pipeline, "mix");
  if (!mixer || mixer->numsinkpads > 0) return;
  GError* rawError = nullptr;
  GstElement* made = gst_parse_bin_from_description(kSilence, TRUE, &rawError);
  const GErrorPtr error(rawError);
  const GstElementPtr silence(
      made == nullptr ? nullptr : GST_ELEMENT(gst_object_ref_sink(made)));
  if (!silence || error) {
    // Untested: its element is of the library that has the mixer's source too.
    throw CodedError(error_code::kMissingElement,
                     error ? error->message : "there is no silence");
  }
  gst_bin_add(GST_BIN(pipeline), silence.get());
  if (gst_element_link(silence.get(), mixer.get()) == FALSE) {
    // Untested: a mixer takes what has its caps.
    throw CodedError(error_code::kPipelineInvalid,
                     "the mixer of sound takes no silence");
  }
}

}  // namespace linux_capture
