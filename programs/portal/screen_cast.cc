#include "portal/screen_cast.h"

#include <unistd.h>

#include <utility>

#include "common/program_error.h"

namespace linux_capture::portal {
namespace {

using programs::kStatusCancelled;
using programs::kStatusRefused;
using programs::ProgramError;

// Versions of the interface in which something first appeared.
constexpr std::uint32_t kVersionWithCursorModes = 2;
constexpr std::uint32_t kVersionWithRestoring = 4;

void AddNumber(GVariantBuilder& settings, const char* key,
               std::uint32_t number) {
  g_variant_builder_add(&settings, "{sv}", key, g_variant_new_uint32(number));
}

void AddText(GVariantBuilder& settings, const char* key,
             const std::string& text) {
  g_variant_builder_add(&settings, "{sv}", key,
                        g_variant_new_string(text.c_str()));
}

std::uint32_t ChooseTypes(const PortalBus& bus, const PortalOptions& options) {
  const std::uint32_t offered = bus.Property("AvailableSourceTypes");
  constexpr std::uint32_t kBoth = kTypeMonitor | kTypeWindow;
  const std::uint32_t wanted = options.types.value_or(offered & kBoth);
  if (wanted == 0 || (wanted & ~offered) != 0) {
    throw ProgramError(
        kStatusRefused,
        "the portal cannot cast: " +
            NamesOf(kTypeNames, wanted == 0 ? kBoth : wanted & ~offered) +
            "; it offers: " + NamesOf(kTypeNames, offered));
  }
  return wanted;
}

// Nothing where the portal has no choice of modes.
std::optional<std::uint32_t> ChooseCursor(const PortalBus& bus,
                                          const PortalOptions& options,
                                          std::uint32_t version) {
  const std::uint32_t offered = version < kVersionWithCursorModes
                                    ? 0
                                    : bus.Property("AvailableCursorModes");
  if (options.cursor) {
    if ((offered & *options.cursor) == 0) {
      throw ProgramError(
          kStatusRefused,
          "the portal has no cursor mode \"" +
              NamesOf(kCursorNames, *options.cursor) +
              "\"; it offers: " + NamesOf(kCursorNames, offered));
    }
    return options.cursor;
  }
  if ((offered & kCursorEmbedded) != 0) return kCursorEmbedded;
  return std::nullopt;
}

GVariant* WithSettings(const char*, GVariantBuilder* settings) {
  return g_variant_new("(a{sv})", settings);
}

GVariant* WithSession(const char* session, GVariantBuilder* settings) {
  return g_variant_new("(oa{sv})", session, settings);
}

// The dialog has no window of this program to stay on top of.
GVariant* WithSessionAndParent(const char* session, GVariantBuilder* settings) {
  return g_variant_new("(osa{sv})", session, "", settings);
}

}  // namespace

ScreenCast::ScreenCast(PortalBus& bus, const PortalOptions& options,
                       const std::optional<std::string>& restoreToken)
    : bus_(bus), version_(bus.Property("version")) {
  // The destructor does not run for an object that was not finished.
  try {
    Grant(options, restoreToken);
  } catch (...) {
    CloseAll();
    throw;
  }
}

ScreenCast::~ScreenCast() { CloseAll(); }

void ScreenCast::CloseAll() noexcept {
  if (!request_.empty()) bus_.Close(request_, "org.freedesktop.portal.Request");
  if (!session_.empty()) bus_.Close(session_, "org.freedesktop.portal.Session");
}

void ScreenCast::Grant(const PortalOptions& options,
                       const std::optional<std::string>& restoreToken) {
  types_ = ChooseTypes(bus_, options);
  cursor_ = ChooseCursor(bus_, options, version_);
  CreateSession();
  SelectSources(options, restoreToken);
  Start(restoreToken);
  bus_.ThrowIfClosed(session_);
  pipeWire_ = bus_.OpenPipeWireRemote(session_);
}

void ScreenCast::CreateSession() {
  GVariantBuilder settings;
  g_variant_builder_init(&settings, G_VARIANT_TYPE_VARDICT);
  const std::string token = "linux_capture_session_" + std::to_string(getpid());
  AddText(settings, "session_handle_token", token);
  const GVariantPtr results =
      Request("CreateSession", settings, WithSettings, Answerer::kDesktop);
  // A string by the documentation's own confession of a mistake, an object
  // path in some backends.
  const GVariantPtr handle(
      g_variant_lookup_value(results.get(), "session_handle", nullptr));
  const bool isText =
      handle &&
      (g_variant_is_of_type(handle.get(), G_VARIANT_TYPE_STRING) != FALSE ||
       g_variant_is_of_type(handle.get(), G_VARIANT_TYPE_OBJECT_PATH) != FALSE);
  const std::string path =
      isText ? g_variant_get_string(handle.get(), nullptr) : "";
  if (g_variant_is_object_path(path.c_str()) == FALSE) {
    throw ProgramError(kStatusRefused, "the portal created no session");
  }
  session_ = path;
}

void ScreenCast::SelectSources(const PortalOptions& options,
                               const std::optional<std::string>& restoreToken) {
  GVariantBuilder settings;
  g_variant_builder_init(&settings, G_VARIANT_TYPE_VARDICT);
  AddNumber(settings, "types", types_);
  g_variant_builder_add(&settings, "{sv}", "multiple",
                        g_variant_new_boolean(FALSE));
  if (cursor_) AddNumber(settings, "cursor_mode", *cursor_);
  if (version_ >= kVersionWithRestoring) {
    AddNumber(settings, "persist_mode", options.persist);
    if (restoreToken) {
      AddText(settings, "restore_token", *restoreToken);
    }
  }
  Request("SelectSources", settings, WithSession, Answerer::kDesktop);
}

void ScreenCast::Start(const std::optional<std::string>& restoreToken) {
  GVariantBuilder settings;
  g_variant_builder_init(&settings, G_VARIANT_TYPE_VARDICT);
  const GVariantPtr results =
      Request("Start", settings, WithSessionAndParent, Answerer::kUser);
  stream_ = ReadGrantedStream(results.get(), types_);
  stream_.isRestoreTokenUsed =
      restoreToken.has_value() && version_ >= kVersionWithRestoring;
  stream_.isRestoreTokenUpdated =
      stream_.restoreToken.has_value() && stream_.restoreToken != restoreToken;
}

GVariantPtr ScreenCast::Request(const char* method, GVariantBuilder& settings,
                                GVariant* (*argumentsOf)(const char*,
                                                         GVariantBuilder*),
                                Answerer answerer) {
  const std::string token = "linux_capture_" + std::to_string(getpid()) + "_" +
                            std::to_string(++requestCount_);
  AddText(settings, "handle_token", token);
  request_ = bus_.PathOf("request", token);
  PortalResponse response =
      bus_.Request(method, argumentsOf(session_.c_str(), &settings), request_,
                   session_, answerer);
  request_.clear();
  if (response.code == 1) {
    throw ProgramError(kStatusCancelled, "the user cancelled the screen cast");
  }
  if (response.code != 0) {
    throw ProgramError(kStatusRefused,
                       std::string("the portal denied the screen cast (") +
                           method + " answered " +
                           std::to_string(response.code) + ")");
  }
  return std::move(response.results);
}

}  // namespace linux_capture::portal
