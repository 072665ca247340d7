// Runs every saved input once, without a fuzzer: file_name... The function is
// the one that the fuzzer calls.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <span>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size);

int main(int argc, char** argv) {
  int count = 0;
  for (const char* name :
       std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
    std::ifstream file(name, std::ios::binary);
    if (!file) {
      std::fprintf(stderr, "cannot read %s\n", name);
      return 1;
    }
    // Told before it runs: a broken rule ends the program.
    std::fprintf(stderr, "%s\n", name);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
    ++count;
  }
  std::printf("%d inputs\n", count);
  return 0;
}
