#ifndef LINUX_CAPTURE_ADDON_ENVIRONMENT_JS_H_
#define LINUX_CAPTURE_ADDON_ENVIRONMENT_JS_H_

#include <node_api.h>

namespace linux_capture {

// What this module owes each JavaScript environment (the main thread and every
// worker that loaded it). All of these run on the environment's own thread.

// Arranges that the environment's end stops the capture that it started and
// drops its callbacks.
void RegisterEnvironment(napi_env env);

// Makes the environment's clean-up run before that of the thread-safe
// functions it created so far: Node.js runs the latest registration first.
void RenewEnvironmentCleanup(napi_env env);

// A capture that `env` started keeps its event loop, and so the process,
// alive until it is stopped.
void HoldLoopForCapture(napi_env env);

// The capture has stopped, whoever stopped it.
void ReleaseLoopFromCapture();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_ENVIRONMENT_JS_H_
