#ifndef LINUX_CAPTURE_BENCH_SCENE_ARGUMENTS_H_
#define LINUX_CAPTURE_BENCH_SCENE_ARGUMENTS_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace linux_capture::bench {

struct Size {
  int width = 0;
  int height = 0;
};

// A command line of "--name value" pairs followed by plain numbers. Every
// question throws std::runtime_error when the answer is missing or wrong.
class Arguments {
 public:
  Arguments(int argc, char** argv);

  bool Has(const std::string& name) const { return options_.contains(name); }
  std::string Text(const std::string& name) const;
  std::int64_t Number(const std::string& name, std::int64_t low,
                      std::int64_t high) const;
  // "1920x1080", both 64 to 32767.
  Size SizeOf(const std::string& name) const;
  std::vector<std::uint32_t> PictureNumbers() const;

 private:
  std::map<std::string, std::string> options_;
  std::vector<std::string> rest_;
};

}  // namespace linux_capture::bench

#endif  // LINUX_CAPTURE_BENCH_SCENE_ARGUMENTS_H_
