#include "launch_boundary/picture_layout.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <vector>

#include "base/gst_handles.h"

namespace linux_capture {
namespace {

GstVideoInfo InfoFor(GstVideoFormat format, guint width, guint height) {
  GstVideoInfo info;
  gst_video_info_init(&info);
  gst_video_info_set_format(&info, format, width, height);
  return info;
}

GstBufferPtr BufferOf(gsize size) {
  return GstBufferPtr(gst_buffer_new_allocate(nullptr, size, nullptr));
}

GstVideoMeta* AddMeta(GstBuffer* buffer, GstVideoInfo info) {
  return gst_buffer_add_video_meta_full(
      buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_INFO_FORMAT(&info),
      static_cast<guint>(info.width), static_cast<guint>(info.height),
      GST_VIDEO_INFO_N_PLANES(&info), info.offset, info.stride);
}

const GstVideoInfo kScreen = InfoFor(GST_VIDEO_FORMAT_BGRx, 8, 4);

TEST(PictureLayoutTest, WithoutAMetaTheCapsSayIt) {
  const auto layout = LayoutOf(BufferOf(8 * 4 * 4).get(), kScreen);
  ASSERT_TRUE(layout);
  EXPECT_EQ((*layout)[0].offset, 0);
  EXPECT_EQ((*layout)[0].stride, 32);
  EXPECT_FALSE(LayoutOf(BufferOf(8 * 4 * 4 - 1).get(), kScreen));
}

TEST(PictureLayoutTest, ALargerPictureIsReadInItsOwnRows) {
  const GstVideoInfo larger = InfoFor(GST_VIDEO_FORMAT_BGRx, 16, 8);
  const GstBufferPtr buffer = BufferOf(larger.size);
  AddMeta(buffer.get(), larger);
  const auto layout = LayoutOf(buffer.get(), kScreen);
  ASSERT_TRUE(layout);
  EXPECT_EQ((*layout)[0].stride, 64);
}

TEST(PictureLayoutTest, ASmallerPictureOrAnotherFormatDoesNotFit) {
  for (const GstVideoInfo& other : {InfoFor(GST_VIDEO_FORMAT_BGRx, 7, 4),
                                    InfoFor(GST_VIDEO_FORMAT_BGRx, 8, 3),
                                    InfoFor(GST_VIDEO_FORMAT_RGBx, 8, 4)}) {
    const GstBufferPtr buffer = BufferOf(4096);
    AddMeta(buffer.get(), other);
    EXPECT_FALSE(LayoutOf(buffer.get(), kScreen));
  }
}

TEST(PictureLayoutTest, AnOffsetMovesThePictureAndStaysInside) {
  const GstBufferPtr buffer = BufferOf(kScreen.size + 100);
  GstVideoMeta* meta = AddMeta(buffer.get(), kScreen);
  meta->offset[0] = 100;
  const auto layout = LayoutOf(buffer.get(), kScreen);
  ASSERT_TRUE(layout);
  EXPECT_EQ((*layout)[0].offset, 100);
  meta->offset[0] = 101;
  EXPECT_FALSE(LayoutOf(buffer.get(), kScreen));
  meta->offset[0] = std::numeric_limits<gsize>::max();
  EXPECT_FALSE(LayoutOf(buffer.get(), kScreen));
}

TEST(PictureLayoutTest, ABottomUpPictureBeginsAtItsLastRow) {
  const GstBufferPtr buffer = BufferOf(kScreen.size);
  GstVideoMeta* meta = AddMeta(buffer.get(), kScreen);
  meta->offset[0] = 3 * 32;
  meta->stride[0] = -32;
  const auto layout = LayoutOf(buffer.get(), kScreen);
  ASSERT_TRUE(layout);
  EXPECT_EQ((*layout)[0].offset, 96);
  EXPECT_EQ((*layout)[0].stride, -32);
  meta->offset[0] = 3 * 32 - 1;
  EXPECT_FALSE(LayoutOf(buffer.get(), kScreen));
}

TEST(PictureLayoutTest, ARowDistanceCannotLeadOutside) {
  const GstBufferPtr buffer = BufferOf(kScreen.size);
  GstVideoMeta* meta = AddMeta(buffer.get(), kScreen);
  for (const gint stride : {33, -1, std::numeric_limits<gint>::max(),
                            std::numeric_limits<gint>::min()}) {
    meta->stride[0] = stride;
    EXPECT_FALSE(LayoutOf(buffer.get(), kScreen)) << stride;
  }
}

TEST(PictureLayoutTest, EveryPlaneIsLookedAt) {
  const GstVideoInfo planes = InfoFor(GST_VIDEO_FORMAT_I420, 9, 5);
  const GstBufferPtr buffer = BufferOf(planes.size);
  GstVideoMeta* meta = AddMeta(buffer.get(), planes);
  EXPECT_TRUE(LayoutOf(buffer.get(), planes));
  for (guint plane = 0; plane < 3; ++plane) {
    const gsize offset = meta->offset[plane];
    meta->offset[plane] = planes.size - 3;
    EXPECT_FALSE(LayoutOf(buffer.get(), planes)) << plane;
    meta->offset[plane] = offset;
  }
}

}  // namespace
}  // namespace linux_capture
