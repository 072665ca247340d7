#ifndef LINUX_CAPTURE_ADDON_SESSION_CLAIM_JS_H_
#define LINUX_CAPTURE_ADDON_SESSION_CLAIM_JS_H_

#include <napi.h>

namespace linux_capture {

// A process captures once, and a session is one from before its portal dialog
// to its end: longer than a capture runs. Each thread has JavaScript of its own
// in it, so what tells them of each other is here.

// Puts the claim on `captureSetup`, where the session API finds it under
// Symbol.for("linux-capture.session-claim"): a function that answers whether
// this environment has got it, or gives it back when called with false. The
// module's exports are the host's, and stay as they are.
void OfferSessionClaim(Napi::Env env, Napi::Object captureSetup);

// Gives back what the environment holds when it ends.
void DropSessionClaimOf(napi_env env);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_SESSION_CLAIM_JS_H_
