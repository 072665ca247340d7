#include "pixels/changed_blocks.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "base/gst_handles.h"

namespace linux_capture {
namespace {

// An I420 picture that stays mapped.
class BlockPicture {
 public:
  BlockPicture(int width, int height) {
    gst_video_info_init(&info_);
    gst_video_info_set_format(&info_, GST_VIDEO_FORMAT_I420,
                              static_cast<guint>(width),
                              static_cast<guint>(height));
    buffer_.reset(gst_buffer_new_allocate(nullptr, info_.size, nullptr));
    gst_buffer_memset(buffer_.get(), 0, 77, info_.size);
    frame_ = std::make_unique<MappedVideoFrame>(
        info_, buffer_.get(), static_cast<GstMapFlags>(GST_MAP_READWRITE));
  }

  GstVideoFrame& frame() { return frame_->get(); }

  std::uint8_t& Sample(guint plane, int x, int y) {
    auto* data =
        static_cast<std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame(), plane));
    return data[y * GST_VIDEO_FRAME_PLANE_STRIDE(&frame(), plane) + x];
  }

 private:
  GstVideoInfo info_{};
  GstBufferPtr buffer_;
  std::unique_ptr<MappedVideoFrame> frame_;
};

using Marks = std::vector<std::uint8_t>;

TEST(ChangedBlocks, EqualPicturesHaveNone) {
  BlockPicture before(48, 32);
  BlockPicture now(48, 32);
  Marks marks{1, 1, 1};
  EXPECT_FALSE(MarkChangedBlocks(before.frame(), now.frame(), marks));
  EXPECT_EQ(marks, (Marks{0, 0, 0, 0, 0, 0}));
}

struct ChangedSample {
  guint plane;
  int x;
  int y;
  std::size_t block;
};

class ChangedBlockTest : public ::testing::TestWithParam<ChangedSample> {};

TEST_P(ChangedBlockTest, OneSampleMarksItsBlockAlone) {
  const auto [plane, x, y, block] = GetParam();
  // The last row and column of blocks are cut short.
  BlockPicture before(36, 20);
  BlockPicture now(36, 20);
  now.Sample(plane, x, y) += 1;
  Marks marks;
  EXPECT_TRUE(MarkChangedBlocks(before.frame(), now.frame(), marks));
  Marks expected(6, 0);
  expected[block] = 1;
  EXPECT_EQ(marks, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Places, ChangedBlockTest,
    ::testing::Values(ChangedSample{0, 0, 0, 0}, ChangedSample{0, 15, 15, 0},
                      ChangedSample{0, 16, 0, 1}, ChangedSample{0, 35, 3, 2},
                      ChangedSample{0, 31, 19, 4}, ChangedSample{0, 32, 16, 5},
                      ChangedSample{1, 7, 7, 0}, ChangedSample{1, 17, 9, 5},
                      ChangedSample{2, 8, 0, 1}, ChangedSample{2, 0, 8, 3}));

TEST(ChangedBlocks, ATouchMovesOneChromaSampleOfAMarkedBlockByOneStep) {
  BlockPicture picture(36, 20);
  BlockPicture before(36, 20);
  picture.Sample(1, 8, 0) = before.Sample(1, 8, 0) = 0;
  picture.Sample(1, 16, 8) = before.Sample(1, 16, 8) = 255;
  TouchBlocks({0, 1, 0, 0, 0, 1}, picture.frame());
  int touched = 0;
  for (guint plane = 0; plane < 3; ++plane) {
    for (int y = 0; y < (plane == 0 ? 20 : 10); ++y) {
      for (int x = 0; x < (plane == 0 ? 36 : 18); ++x) {
        const int step =
            std::abs(picture.Sample(plane, x, y) - before.Sample(plane, x, y));
        EXPECT_LE(step, 1);
        touched += step;
      }
    }
  }
  EXPECT_EQ(touched, 2);
  Marks marks;
  MarkChangedBlocks(before.frame(), picture.frame(), marks);
  EXPECT_EQ(marks, (Marks{0, 1, 0, 0, 0, 1}));
}

}  // namespace
}  // namespace linux_capture
