#ifndef LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_CHANGING_PICTURES_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_CHANGING_PICTURES_H_

#include <gst/gst.h>

#include <cstdint>

#include "base/gst_handles.h"

namespace linux_capture::standins {

// A screen cast in ordinary memory that changes its size, its format and the
// place of its rows in mid-stream, as a compositor and its drivers may. Each
// picture is of the colour c81e32 all over.

// What a picture of that number has for caps.
GstCapsPtr ChangingCaps(std::uint32_t number, int rate);

// The picture, without times.
GstBufferPtr ChangingPicture(std::uint32_t number);

}  // namespace linux_capture::standins

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_CHANGING_PICTURES_H_
