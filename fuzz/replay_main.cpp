// Runs a fuzz target over the files of its corpus: replay_NAME DIRECTORY
//
// Needs no fuzzing engine, so it works with every compiler and sanitizer. A missing or empty corpus
// is an error: replaying nothing proves nothing.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::size_t inputs = 0;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1], error)) {
    std::printf("%s\n", entry.path().c_str());
    (void)std::fflush(stdout);  // names the culprit if the target ends the process
    // A block of exactly this size: AddressSanitizer reports a read of one byte past its end.
    std::vector<std::uint8_t> bytes(entry.file_size());
    std::ifstream stream(entry.path(), std::ios::binary);
    if (!stream.read(reinterpret_cast<char*>(bytes.data()), std::ssize(bytes))) return 1;
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ++inputs;
  }
  std::printf("%zu inputs\n", inputs);
  return inputs == 0 ? 1 : 0;
}
