#ifndef LINUX_CAPTURE_ADDON_STATS_REPORT_JS_H_
#define LINUX_CAPTURE_ADDON_STATS_REPORT_JS_H_

#include <node_api.h>

#include "addon/js_object_js.h"
#include "config/capture_config.h"
#include "stats/stats_snapshot.h"

namespace linux_capture {

// The whole statistics object, its keys in their fixed order.
JsObject StatsToJs(napi_env env, const StatsSnapshot& snapshot);

// Adds "sourceIndex" and the nine metadata keys in their fixed order.
void AddAudioSourceIdentity(JsObject& object, std::uint64_t sourceIndex,
                            const AudioSourceMetadata& metadata);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_STATS_REPORT_JS_H_
