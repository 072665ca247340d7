#include "portal/session_bus.h"

#include <string>

#include "common/program_error.h"

namespace linux_capture::portal {
namespace {

using programs::kStatusNoPortal;
using programs::ProgramError;

constexpr const char* kRemedy =
    "; a screen cast needs a desktop session with a session bus (package "
    "dbus-user-session) and xdg-desktop-portal with a backend";

// GLib would go on and start a bus of its own for an X11 display, on which
// there never is a portal.
bool HasSessionBus() {
  if (g_getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr) return true;
  const CharPtr socket(
      g_build_filename(g_get_user_runtime_dir(), "bus", nullptr));
  return g_file_test(socket.get(), G_FILE_TEST_EXISTS) != FALSE;
}

}  // namespace

ConnectionPtr ConnectToSessionBus() {
  if (!HasSessionBus()) {
    throw ProgramError(kStatusNoPortal,
                       std::string("there is no session bus") + kRemedy);
  }
  GError* error = nullptr;
  const CharPtr address(
      g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, &error));
  ConnectionPtr connection;
  if (address) {
    // Not the shared connection, which ends the process when the bus goes.
    connection.reset(g_dbus_connection_new_for_address_sync(
        address.get(),
        static_cast<GDBusConnectionFlags>(
            G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
            G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error));
  }
  if (!connection) {
    const ErrorPtr owned(error);
    throw ProgramError(kStatusNoPortal,
                       std::string("the session bus cannot be reached (") +
                           owned->message + ")" + kRemedy);
  }
  return connection;
}

}  // namespace linux_capture::portal
