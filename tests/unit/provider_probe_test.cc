#include "video_hardware/provider_probe.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "state/capture_state.h"
#include "support/fake_factory.h"

namespace linux_capture {
namespace {

constexpr const char* kH264 = "video/x-h264";
constexpr const char* kPlain = "video/x-raw,format=NV12";

ProviderProbeReport ReportOf(const std::string& encoder) {
  for (auto& report : ProbeHardwareProviders()) {
    if (report.encoder == encoder) return report;
  }
  ADD_FAILURE() << encoder;
  return {};
}

TEST(ProviderProbeTest, EveryProfileIsReportedInOrder) {
  std::vector<std::string> providers;
  for (const auto& report : ProbeHardwareProviders()) {
    EXPECT_TRUE(report.probed);
    EXPECT_FALSE(report.temporalSvcSupported);
    EXPECT_EQ(report.provider, "gstreamer-" + report.encoder);
    providers.push_back(report.encoder);
  }
  EXPECT_EQ(providers, (std::vector<std::string>{
                           "nvh264enc", "nvautogpuh264enc", "vulkanh264enc",
                           "vah264enc", "qsvh264enc"}));
}

TEST(ProviderProbeTest, AMissingElementIsNotAvailable) {
  for (const std::string encoder :
       {"nvh264enc", "nvautogpuh264enc", "vulkanh264enc", "vah264enc",
        "qsvh264enc"}) {
    const FakeFactory missing(encoder);
    const bool isNvenc = encoder.rfind("nv", 0) == 0;
    const ProviderProbeReport report = ReportOf(encoder);
    EXPECT_EQ(report.providerTier,
              isNvenc ? "hardware-simulcast-fps" : "not-runnable");
    EXPECT_EQ(report.hardwareParityMode,
              isNvenc ? "simulcast-fps-presets" : "none");
    EXPECT_FALSE(report.available);
    EXPECT_FALSE(report.selectableForTransport);
    EXPECT_FALSE(report.selectableForSimulcastFps);
    EXPECT_FALSE(report.isHardwareEncoder);
    EXPECT_EQ(report.temporalLayerCapacity, 0);
    EXPECT_FALSE(report.gpuMemorySupported);
    EXPECT_FALSE(report.dmaBufSupported);
    EXPECT_EQ(report.memoryFeature, "");
    EXPECT_EQ(report.temporalMetadataSource, "missing");
    EXPECT_EQ(report.rejectionReason,
              encoder + " GStreamer element is not installed");
  }
}

TEST(ProviderProbeTest, AnNvencElementWithGlMemoryIsSelectable) {
  const FakeFactory encoder(
      "nvh264enc",
      std::string(kPlain) + ";video/x-raw(memory:GLMemory),format=NV12", kH264);
  const ProviderProbeReport report = ReportOf("nvh264enc");
  EXPECT_TRUE(report.available);
  EXPECT_TRUE(report.isHardwareEncoder);
  EXPECT_TRUE(report.gpuMemorySupported);
  EXPECT_EQ(report.memoryFeature, "memory:GLMemory");
  EXPECT_TRUE(report.selectableForTransport);
  EXPECT_TRUE(report.selectableForSimulcastFps);
  EXPECT_EQ(report.temporalLayerCapacity, 1);
  EXPECT_TRUE(report.dmaBufSupported);
  EXPECT_EQ(report.temporalMetadataSource, "synthetic-l1t3-simulcast-dto");
  EXPECT_EQ(report.rejectionReason,
            "nvh264enc is selectable for Linux hardware H.264 simulcast FPS "
            "preset parity");
}

TEST(ProviderProbeTest, AnNvencElementWithoutGlMemoryIsNotSelectable) {
  // The feature must be on a sink pad, and be the right one.
  const FakeFactory encoder("nvautogpuh264enc",
                            "video/x-raw(memory:CUDAMemory),format=NV12",
                            "video/x-raw(memory:GLMemory),format=NV12");
  const ProviderProbeReport report = ReportOf("nvautogpuh264enc");
  EXPECT_TRUE(report.available);
  EXPECT_TRUE(report.isHardwareEncoder);
  EXPECT_FALSE(report.gpuMemorySupported);
  EXPECT_EQ(report.memoryFeature, "");
  EXPECT_FALSE(report.selectableForTransport);
  EXPECT_FALSE(report.selectableForSimulcastFps);
  EXPECT_EQ(report.temporalLayerCapacity, 1);
  EXPECT_TRUE(report.dmaBufSupported);
  EXPECT_EQ(report.temporalMetadataSource, "synthetic-l1t3-simulcast-dto");
  EXPECT_EQ(report.rejectionReason,
            "nvautogpuh264enc is installed, but its sink caps do not prove the "
            "required GPU-backed memory feature");
}

TEST(ProviderProbeTest, AnElementOutsideTheGateIsReportedButNotSelectable) {
  const FakeFactory encoder("vah264enc",
                            "video/x-raw(memory:DMABuf),format=NV12", kH264);
  const ProviderProbeReport report = ReportOf("vah264enc");
  EXPECT_TRUE(report.available);
  EXPECT_TRUE(report.gpuMemorySupported);
  EXPECT_EQ(report.memoryFeature, "memory:DMABuf");
  EXPECT_FALSE(report.selectableForTransport);
  EXPECT_EQ(report.temporalLayerCapacity, 0);
  EXPECT_FALSE(report.dmaBufSupported);
  EXPECT_EQ(report.providerTier, "not-runnable");
  EXPECT_EQ(report.temporalMetadataSource, "missing");
  EXPECT_EQ(report.rejectionReason,
            "vah264enc is intentionally not runnable for this gate; only "
            "NVIDIA NVENC is the app-facing hardware profile");
}

TEST(ProviderProbeTest, TheMissingMemoryIsNamedBeforeTheGate) {
  const FakeFactory encoder("qsvh264enc", kPlain, kH264);
  EXPECT_EQ(ReportOf("qsvh264enc").rejectionReason,
            "qsvh264enc is installed, but its sink caps do not prove the "
            "required GPU-backed memory feature");
}

TEST(ProviderProbeTest, ANewProbeReplacesTheWholeReport) {
  {
    const std::lock_guard lock(g_mutex);
    g_providerProbeReports->assign(7, ProviderProbeReport{});
  }
  RenewProviderProbeReports();
  const std::lock_guard lock(g_mutex);
  ASSERT_EQ(g_providerProbeReports->size(), 5U);
  EXPECT_EQ(g_providerProbeReports->front().encoder, "nvh264enc");
}

}  // namespace
}  // namespace linux_capture
