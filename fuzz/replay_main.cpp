// Runs a fuzz target over the files of its corpus, in name order: replay_NAME DIRECTORY...
//
// Needs no fuzzing engine, so every compiler and sanitizer build does it. A corpus that is missing
// or empty is an error: a replay of nothing proves nothing.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> files_of(int count, char** directories) {
  std::vector<std::filesystem::path> files;
  for (int i = 0; i < count; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(directories[i])) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

void replay(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
  if (!stream) throw std::runtime_error("cannot read " + path.string());
  // A block of exactly this size: one byte read past the end is an AddressSanitizer report.
  const auto block = std::make_unique<std::uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), block.get());
  LLVMFuzzerTestOneInput(block.get(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const auto files = files_of(argc - 1, argv + 1);
    for (const auto& path : files) {
      std::printf("%s\n", path.c_str());
      (void)std::fflush(stdout);  // names the culprit when the target ends the process
      replay(path);
    }
    std::printf("%zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
