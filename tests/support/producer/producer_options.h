#ifndef LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_PRODUCER_OPTIONS_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_PRODUCER_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace linux_capture::producer {

// How the producer words its frame rate, as screen casts do it in the wild.
enum class RateOffer : std::uint8_t {
  kFixed,     // exactly `fps`
  kVariable,  // 0/1, with `fps` as the upper limit
  kRange,     // anything from 1 to `fps`, the reader chooses
};

// What the command line asked for.
struct ProducerOptions {
  std::string name = "screen";
  std::uint32_t width = 640;
  std::uint32_t height = 360;
  std::string format = "BGRx";
  std::uint32_t fps = 30;
  RateOffer rateOffer = RateOffer::kFixed;
  bool hasTimestamps = true;
  // Seconds between two flashes with a click; 0 for none and no sound at all.
  std::uint32_t clickEvery = 0;
  // The pitch of a tone that is played instead; 0 for none.
  std::uint32_t toneHertz = 0;
};

extern const char kUsage[];

// Reads the arguments after the program name; throws std::runtime_error with a
// readable message when one of them is unknown, incomplete or out of range.
ProducerOptions ParseProducerOptions(const std::vector<std::string>& arguments);

}  // namespace linux_capture::producer

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_PRODUCER_OPTIONS_H_
