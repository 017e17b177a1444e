// Runs a fuzz target over the files of directories, each once and each cut at a few places, without libFuzzer.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "tests/fuzz/fuzz.h"

namespace {

std::vector<std::uint8_t> contentOf(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Copies exactly `size` bytes, so that a read past the end is seen by the sanitizers.
void runOn(const std::vector<std::uint8_t>& bytes, std::size_t size) {
  const std::vector<std::uint8_t> exact(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

}  // namespace

int main(int argc, char** argv) {
  int files = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      const std::vector<std::uint8_t> bytes = contentOf(entry.path());
      for (std::size_t part = 0; part <= 8; ++part) runOn(bytes, bytes.size() * part / 8);
      ++files;
    }
  }
  std::printf("%d files replayed\n", files);
  return files > 0 ? 0 : 1;
}
