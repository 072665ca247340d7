#include "portal/session_bus.h"

#include <chrono>
#include <string>
#include <utility>

#include "base/c_callback.h"
#include "common/program_error.h"

namespace linux_capture::portal {
namespace {

using programs::kStatusNoPortal;
using programs::ProgramError;

constexpr const char* kRemedy =
    "; a screen cast needs a desktop session with a session bus (package "
    "dbus-user-session) and xdg-desktop-portal with a backend";

// A bus answers at once; this is for one on a machine that is very busy.
constexpr std::chrono::seconds kAnswerLimit{10};

struct PendingConnection {
  bool isDone = false;
  GObjectPtr<GDBusConnection> connection;
  GErrorPtr error;
};

void OnConnected(GObject*, GAsyncResult* result, gpointer pending) {
  auto& made = *static_cast<PendingConnection*>(pending);
  GError* error = nullptr;
  made.connection.reset(
      g_dbus_connection_new_for_address_finish(result, &error));
  made.error.reset(error);
  made.isDone = true;
}

// GLib would go on and start a bus of its own for an X11 display, on which
// there never is a portal.
bool HasSessionBus() {
  if (g_getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr) return true;
  const GCharPtr socket(
      g_build_filename(g_get_user_runtime_dir(), "bus", nullptr));
  return g_file_test(socket.get(), G_FILE_TEST_EXISTS) != FALSE;
}

[[noreturn]] void ThrowUnreachable(const GError* error) {
  throw ProgramError(kStatusNoPortal,
                     std::string("the session bus cannot be reached (") +
                         error->message + ")" + kRemedy);
}

}  // namespace

GObjectPtr<GDBusConnection> ConnectToSessionBus(HostWatch& host) {
  if (!HasSessionBus()) {
    throw ProgramError(kStatusNoPortal,
                       std::string("there is no session bus") + kRemedy);
  }
  GError* error = nullptr;
  const GCharPtr address(
      g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, &error));
  const GErrorPtr owned(error);
  if (!address) ThrowUnreachable(error);
  PendingConnection pending;
  // Not the shared connection, which ends the process when the bus goes.
  g_dbus_connection_new_for_address(
      address.get(),
      static_cast<GDBusConnectionFlags>(
          G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, NoThrow<&OnConnected>, &pending);
  // Where this is given up, nothing runs the main loop any more that would
  // deliver a late answer to what is gone then.
  if (!host.WaitUntil([&] { return pending.isDone; }, kAnswerLimit)) {
    throw ProgramError(kStatusNoPortal,
                       "the session bus does not answer (waited " +
                           std::to_string(kAnswerLimit.count()) + " seconds)");
  }
  if (!pending.connection) ThrowUnreachable(pending.error.get());
  return std::move(pending.connection);
}

}  // namespace linux_capture::portal
