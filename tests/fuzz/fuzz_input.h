#ifndef LINUX_CAPTURE_TESTS_FUZZ_FUZZ_INPUT_H_
#define LINUX_CAPTURE_TESTS_FUZZ_FUZZ_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "config/capture_config.h"

namespace linux_capture::fuzz {

// Ends the program with the rule that was broken unless `holds`.
void Require(bool holds, const char* rule);

// Takes values off the front of a fuzzer's bytes; past the end all are zero.
class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size)
      : data_(data), left_(size) {}

  template <typename Number>
  Number Take() {
    Number value{};
    const std::size_t count = left_ < sizeof(value) ? left_ : sizeof(value);
    if (count != 0) std::memcpy(&value, data_, count);
    data_ += count;
    left_ -= count;
    return value;
  }

  bool TakeBool() { return (Take<std::uint8_t>() & 1U) != 0; }

  // A number near an edge as often as any other.
  std::int32_t TakeInt();

  // A text of up to 255 bytes, or of hostile words.
  std::string TakeText();

  std::vector<std::uint8_t> TakeRest() {
    std::vector<std::uint8_t> rest(data_, data_ + left_);
    left_ = 0;
    return rest;
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

// A branch of any values.
VideoBranchConfig TakeBranch(FuzzInput& input);

// A configuration of any values: every text is either one that the module
// knows or a hostile one.
CaptureConfig TakeConfig(FuzzInput& input);

}  // namespace linux_capture::fuzz

#endif  // LINUX_CAPTURE_TESTS_FUZZ_FUZZ_INPUT_H_
