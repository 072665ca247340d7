#include "addon/set_bitrate_js.h"

#include "addon/exported_js.h"
#include "video_hardware/bitrate_control.h"

namespace linux_capture {

Napi::Value SetBitrate(const Napi::CallbackInfo& info) {
  const Napi::Env env = info.Env();
  if (info.Length() != 1 || !info[0].IsNumber()) {
    throw ArgumentError(
        env, "setBitrate requires one bitrate number in bits per second");
  }
  const AppliedBitrate applied =
      SetTotalBitrate(info[0].As<Napi::Number>().DoubleValue());
  JsObject result(env);
  result.Number("requestedBitrate", applied.requestedBitrate);
  result.Array("branchBitrates", applied.branchBitrates,
               [](napi_env target, const AppliedBranchBitrate& branch) {
                 JsObject element(target);
                 element.Number("branchIndex", branch.branchIndex)
                     .Number("bitrate", branch.bitrate)
                     .Number("bitrateUnits", branch.bitrateUnits);
                 return element;
               });
  return Finish(env, result);
}

}  // namespace linux_capture
