#include "launch_boundary/stale_blocks.h"

#include <gst/app/gstappsink.h>
#include <gtest/gtest.h>
#include <wels/codec_api.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "delivery/callbacks.h"
#include "delivery/video_packet.h"
#include "launch_boundary/stale_block_check.h"
#include "state/capture_state.h"
#include "support/app_pipeline.h"
#include "support/capture_fixture.h"
#include "support/fake_node_api.h"
#include "video_software/openh264_branches.h"
#include "video_software/raw_frame_encoding.h"

namespace linux_capture {
namespace {

constexpr const char* kCheckedCaps =
    "video/x-raw,format=I420,width=128,height=128,framerate=30/1";

std::vector<CheckedPicture> Same(const std::vector<CheckedPicture>& pictures) {
  return pictures;
}

TEST(StaleBlockCheck, ALibraryThatShowsWhatWasDrawnIsRight) {
  EXPECT_FALSE(LeavesStaleBlocks(Same));
}

TEST(StaleBlockCheck, CoarseCodingIsNoStaleBlock) {
  EXPECT_FALSE(LeavesStaleBlocks([](std::vector<CheckedPicture> pictures) {
    for (auto& picture : pictures) {
      for (auto& sample : picture) {
        sample = static_cast<std::uint8_t>(sample / 20 * 20 + 10);
      }
    }
    return pictures;
  }));
}

TEST(StaleBlockCheck, ABlockOfTheThirdPictureInTheFourthIsStale) {
  EXPECT_TRUE(LeavesStaleBlocks([](std::vector<CheckedPicture> pictures) {
    EXPECT_EQ(pictures.size(), 4U);
    pictures[3] = pictures[2];
    return pictures;
  }));
}

TEST(StaleBlockCheck, ALibraryThatShowsNothingIsNotTrusted) {
  EXPECT_TRUE(LeavesStaleBlocks(
      [](const auto&) { return std::vector<CheckedPicture>(); }));
  EXPECT_TRUE(LeavesStaleBlocks(
      [](const auto&) { return std::vector<CheckedPicture>(4); }));
}

class PlayerDecoder {
 public:
  PlayerDecoder() {
    WelsCreateDecoder(&decoder_);
    SDecodingParam parameters{};
    parameters.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_DEFAULT;
    decoder_->Initialize(&parameters);
  }
  PlayerDecoder(const PlayerDecoder&) = delete;
  PlayerDecoder& operator=(const PlayerDecoder&) = delete;
  ~PlayerDecoder() {
    decoder_->Uninitialize();
    WelsDestroyDecoder(decoder_);
  }

  CheckedPicture Luma(const std::vector<std::uint8_t>& unit) {
    std::array<unsigned char*, 3> planes{};
    SBufferInfo info{};
    decoder_->DecodeFrameNoDelay(unit.data(), static_cast<int>(unit.size()),
                                 planes.data(), &info);
    CheckedPicture luma;
    if (info.iBufferStatus != 1) return luma;
    for (int y = 0; y < kCheckedSize; ++y) {
      const unsigned char* line =
          planes[0] + static_cast<std::ptrdiff_t>(y) *
                          info.UsrData.sSystemBuffer.iStride[0];
      luma.insert(luma.end(), line, line + kCheckedSize);
    }
    return luma;
  }

 private:
  ISVCDecoder* decoder_ = nullptr;
};

class StaleBlocksTest : public CaptureFixture {
 protected:
  // As a branch of a capture encodes them.
  static std::vector<CheckedPicture> Code(
      const std::vector<CheckedPicture>& pictures, AppPipeline& pipeline) {
    InitializeOpenH264Branch(
        MakeBranch(0, kCheckedSize, kCheckedSize, 30, 1'000'000, 1'500'000), 3);
    FakeListener<VideoPacket> listener(g_fragmentCallback);
    VideoSinkContext context;
    context.fps = 30;
    GstClockTime time = GST_SECOND;
    for (const CheckedPicture& picture : pictures) {
      pipeline.Push(MakeBuffer(picture, time));
      EXPECT_EQ(OnVideoSample(pipeline.sink(), &context), GST_FLOW_OK);
      time += GST_SECOND / 30;
    }
    PlayerDecoder decoder;
    std::vector<CheckedPicture> shown;
    for (const auto& packet : listener.Take()) {
      shown.push_back(decoder.Luma(packet->payload));
    }
    return shown;
  }

  static bool LeavesThem(bool isTouched) {
    AppPipeline pipeline(kCheckedCaps);
    if (isTouched) TouchPicturesAfterLayerOne(GST_ELEMENT(pipeline.sink()));
    return LeavesStaleBlocks(
        [&](const auto& pictures) { return Code(pictures, pipeline); });
  }
};

TEST_F(StaleBlocksTest, ACaptureIsJudgedAsTheLibraryAlone) {
  EXPECT_EQ(LeavesThem(false), InstalledOpenH264LeavesStaleBlocks());
}

TEST_F(StaleBlocksTest, TouchedPicturesShowNone) {
  EXPECT_FALSE(LeavesThem(true));
}

// What comes out of the appsink for a picture of one value, after a picture of
// another that was encoded with the given temporal index.
CheckedPicture PictureAfter(AppPipeline& pipeline, std::int32_t temporalIndex,
                            GstBufferPtr picture) {
  pipeline.Push(MakeBuffer(CheckedPicture(128 * 128 * 3 / 2, 10), GST_SECOND));
  const GstSamplePtr first(gst_app_sink_pull_sample(pipeline.sink()));
  NoteTemporalIndex(GST_ELEMENT(pipeline.sink()),
                    gst_sample_get_buffer(first.get()), temporalIndex);
  pipeline.Push(std::move(picture));
  const GstSamplePtr second(gst_app_sink_pull_sample(pipeline.sink()));
  const ReadableBuffer bytes(gst_sample_get_buffer(second.get()));
  return {bytes.data(), bytes.data() + bytes.size()};
}

std::ptrdiff_t SamplesTouchedAfter(std::int32_t temporalIndex) {
  AppPipeline pipeline(kCheckedCaps);
  TouchPicturesAfterLayerOne(GST_ELEMENT(pipeline.sink()));
  const CheckedPicture drawn(128 * 128 * 3 / 2, 20);
  const CheckedPicture shown =
      PictureAfter(pipeline, temporalIndex, MakeBuffer(drawn, 2 * GST_SECOND));
  std::ptrdiff_t touched = 0;
  for (std::size_t i = 0; i < drawn.size(); ++i) {
    if (shown[i] != drawn[i]) ++touched;
  }
  return touched;
}

TEST_F(StaleBlocksTest, OnlyThePictureAfterTemporalIndexOneIsTouched) {
  EXPECT_EQ(SamplesTouchedAfter(0), 0);
  EXPECT_EQ(SamplesTouchedAfter(1), 64);
  EXPECT_EQ(SamplesTouchedAfter(2), 0);
  EXPECT_EQ(SamplesTouchedAfter(kNoPacket), 0);
}

TEST_F(StaleBlocksTest, ThePictureThatOthersHoldStaysAsItIs) {
  AppPipeline pipeline(kCheckedCaps);
  TouchPicturesAfterLayerOne(GST_ELEMENT(pipeline.sink()));
  const CheckedPicture drawn(128 * 128 * 3 / 2, 20);
  GstBufferPtr picture = MakeBuffer(drawn, 2 * GST_SECOND);
  // As a tee hands one picture to two branches.
  const GstBufferPtr held(gst_buffer_copy(picture.get()));
  EXPECT_NE(PictureAfter(pipeline, 1, std::move(picture)), drawn);
  const ReadableBuffer bytes(held.get());
  EXPECT_EQ(CheckedPicture(bytes.data(), bytes.data() + bytes.size()), drawn);
}

class StaleBlockRepairTest : public CaptureFixture {
 protected:
  static bool IsRepaired(std::int32_t temporalLayerCount) {
    CaptureConfig config;
    config.temporalLayerCount = temporalLayerCount;
    const AppPipeline pipeline(kCheckedCaps);
    AvoidStaleBlocks(pipeline.element(), config);
    return g_object_get_data(G_OBJECT(pipeline.sink()),
                             "linux-capture-stale-blocks") != nullptr;
  }
};

TEST_F(StaleBlockRepairTest, OnlyThreeLayersAndAFaultyLibraryNeedIt) {
  EXPECT_FALSE(IsRepaired(1));
  EXPECT_FALSE(IsRepaired(2));
  EXPECT_EQ(IsRepaired(3), InstalledOpenH264LeavesStaleBlocks());
}

}  // namespace
}  // namespace linux_capture
