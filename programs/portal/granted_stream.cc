#include "portal/granted_stream.h"

#include "common/json_text.h"
#include "common/program_error.h"
#include "portal/portal_options.h"

namespace linux_capture::portal {
namespace {

using programs::JsonBool;
using programs::JsonNumber;
using programs::JsonNumberOrNull;
using programs::JsonObject;
using programs::JsonString;
using programs::JsonStringOrNull;
using programs::kStatusRefused;
using programs::ProgramError;

std::optional<std::string> LookUpText(GVariant* dictionary, const char* key) {
  const gchar* text = nullptr;
  if (g_variant_lookup(dictionary, key, "&s", &text) == FALSE) {
    return std::nullopt;
  }
  return text;
}

bool IsSingleType(std::uint32_t types) { return (types & (types - 1)) == 0; }

}  // namespace

GrantedStream ReadGrantedStream(GVariant* results, std::uint32_t askedTypes) {
  const GVariantPtr streams(
      g_variant_lookup_value(results, "streams", G_VARIANT_TYPE("a(ua{sv})")));
  if (!streams || g_variant_n_children(streams.get()) == 0) {
    throw ProgramError(kStatusRefused, "the portal granted no stream");
  }
  // Only one was asked for.
  GrantedStream stream;
  GVariant* borrowed = nullptr;
  g_variant_get_child(streams.get(), 0, "(u@a{sv})", &stream.node, &borrowed);
  const GVariantPtr properties(borrowed);

  if (g_variant_lookup(properties.get(), "size", "(ii)", &stream.width,
                       &stream.height) == FALSE ||
      stream.width < 1 || stream.height < 1) {
    throw ProgramError(kStatusRefused,
                       "the portal does not tell the size of the stream");
  }
  guint64 serial = 0;
  if (g_variant_lookup(properties.get(), "pipewire-serial", "t", &serial) !=
      FALSE) {
    stream.serial = serial;
  }
  g_variant_lookup(properties.get(), "source_type", "u", &stream.sourceType);
  // Where there was one kind to choose from, that is the one: some portals do
  // not tell, and the one for wlroots 0.7 calls its monitors windows.
  if (IsSingleType(askedTypes)) stream.sourceType = askedTypes;
  stream.id = LookUpText(properties.get(), "id");
  stream.mappingId = LookUpText(properties.get(), "mapping_id");
  stream.restoreToken = LookUpText(results, "restore_token");
  return stream;
}

std::string ReportOf(const GrantedStream& stream, int pid, int pipeWireFd) {
  const bool isWindow = stream.sourceType == kTypeWindow;
  return JsonObject({
      {"pid", JsonNumber(pid)},
      {"pipeWireFd", JsonNumber(pipeWireFd)},
      {"pipeWireNodeId", JsonNumber(stream.node)},
      {"pipeWireSerial", JsonNumberOrNull(stream.serial)},
      {"streamSize", JsonObject({{"width", JsonNumber(stream.width)},
                                 {"height", JsonNumber(stream.height)}})},
      {"sourceType", JsonNumber(stream.sourceType)},
      {"kind", JsonString(isWindow ? "window" : "monitor")},
      // The portal tells no name that a user would know.
      {"label", "null"},
      {"streamId", JsonStringOrNull(stream.id)},
      {"mappingId", JsonStringOrNull(stream.mappingId)},
      {"restoreToken", JsonStringOrNull(stream.restoreToken)},
      {"restoreTokenUsed", JsonBool(stream.isRestoreTokenUsed)},
      {"restoreTokenUpdated", JsonBool(stream.isRestoreTokenUpdated)},
  });
}

}  // namespace linux_capture::portal
