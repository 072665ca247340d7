#ifndef LINUX_CAPTURE_BASE_GLIB_CALLBACK_H_
#define LINUX_CAPTURE_BASE_GLIB_CALLBACK_H_

#include <glib-object.h>

#include "base/c_callback.h"

namespace linux_capture {

// Connects a signal of `instance`; returns the number to disconnect it by.
// `data` outlives the connection.
template <auto kFunction>
gulong ConnectSignal(gpointer instance, const char* signal, gpointer data) {
  return g_signal_connect_data(instance, signal,
                               reinterpret_cast<GCallback>(NoThrow<kFunction>),
                               data, nullptr, static_cast<GConnectFlags>(0));
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_GLIB_CALLBACK_H_
