#include "nv_encoder_properties.h"

#include "switches.h"

namespace linux_capture::standins {
namespace {

enum PropertyId : guint {
  kBitrate = 1,
  kMaxBitrate,
  kGopSize,
  kBFrames,
  kCabac,
  kPreset,
  kZeroLatency,
  kRateControl,
  kStrictGop,
  kDelimiters,
  kRepeatHeaders,
};

constexpr auto kWritable = G_PARAM_WRITABLE;
constexpr unsigned int kMaxKilobits = 2048000;

GType PresetType() {
  static const GEnumValue kValues[] = {
      {0, "Default", "default"},
      {1, "High Performance", "hp"},
      {2, "High Quality", "hq"},
      {3, "Low Latency", "low-latency"},
      {4, "Low Latency, High Quality", "low-latency-hq"},
      {5, "Low Latency, High Performance", "low-latency-hp"},
      {0, nullptr, nullptr}};
  static const GType kType =
      g_enum_register_static("StandinNvEncoderPreset", kValues);
  return kType;
}

GType RateControlType() {
  static const GEnumValue kValues[] = {{0, "Default", "default"},
                                       {1, "Constant Quantization", "constqp"},
                                       {2, "Constant Bit Rate", "cbr"},
                                       {3, "Variable Bit Rate", "vbr"},
                                       {0, nullptr, nullptr}};
  static const GType kType =
      g_enum_register_static("StandinNvEncoderRateControl", kValues);
  return kType;
}

GParamSpec* Flag(const char* name) {
  return g_param_spec_boolean(name, nullptr, nullptr, FALSE, kWritable);
}

GParamSpec* Kilobits(const char* name, bool isText) {
  return isText
             ? g_param_spec_string(name, nullptr, nullptr, nullptr, kWritable)
             : g_param_spec_uint(name, nullptr, nullptr, 0, kMaxKilobits, 0,
                                 kWritable);
}

}  // namespace

StreamSettings SettingsOf(const NvEncoderProperties& properties) {
  constexpr unsigned int kDefaultKilobits = 2000;
  const unsigned int bitrate = properties.bitrate.load();
  const unsigned int kilobits = bitrate != 0 ? bitrate : kDefaultKilobits;
  return {.bitrate = static_cast<int>(kilobits) * 1000,
          .gopSize = properties.gopSize.load(),
          .isCabac = properties.isCabac.load(),
          .hasDelimiters = properties.hasDelimiters.load()};
}

void InstallNvEncoderProperties(GObjectClass* objectClass) {
  const auto install = [objectClass](PropertyId id, GParamSpec* property) {
    g_object_class_install_property(objectClass, id, property);
  };
  if (!IsSwitchedOn("no-bitrate")) {
    install(kBitrate, Kilobits("bitrate", IsSwitchedOn("text-bitrate")));
  }
  install(kMaxBitrate,
          Kilobits("max-bitrate", IsSwitchedOn("text-max-bitrate")));
  install(kGopSize, g_param_spec_int("gop-size", nullptr, nullptr, -1, G_MAXINT,
                                     75, kWritable));
  install(kBFrames, g_param_spec_uint("bframes", nullptr, nullptr, 0, G_MAXINT,
                                      0, kWritable));
  const bool isOld = IsSwitchedOn("old-properties");
  if (!isOld) install(kCabac, Flag("cabac"));
  install(kPreset, g_param_spec_enum("preset", nullptr, nullptr, PresetType(),
                                     0, kWritable));
  install(kZeroLatency, Flag("zerolatency"));
  install(kRateControl, g_param_spec_enum("rc-mode", nullptr, nullptr,
                                          RateControlType(), 0, kWritable));
  install(kStrictGop, Flag("strict-gop"));
  install(kDelimiters, Flag("aud"));
  if (!isOld) install(kRepeatHeaders, Flag("repeat-sequence-header"));
}

void StoreNvEncoderProperty(NvEncoderProperties& properties, guint id,
                            const GValue* value) {
  switch (id) {
    case kBitrate:
      if (G_VALUE_HOLDS_UINT(value)) {
        properties.bitrate.store(g_value_get_uint(value));
      }
      break;
    case kGopSize:
      properties.gopSize.store(g_value_get_int(value));
      break;
    case kCabac:
      properties.isCabac.store(g_value_get_boolean(value) != FALSE);
      break;
    case kDelimiters:
      properties.hasDelimiters.store(g_value_get_boolean(value) != FALSE);
      break;
    default:
      // The others make no difference to this encoder: it has no B frames,
      // keeps a constant bitrate and repeats its headers by itself.
      break;
  }
}

}  // namespace linux_capture::standins
