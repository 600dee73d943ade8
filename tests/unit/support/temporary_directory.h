// A private directory that lasts as long as its test, and helpers for files.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace tally {

class TemporaryDirectory {
 public:
  // In memory where possible: a disk file that is truncated over and over is written out each time.
  TemporaryDirectory()
      : path_((access("/dev/shm", W_OK) == 0 ? "/dev/shm/" : testing::TempDir()) +
              "tallyd-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) std::abort();
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string read_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// bytes_of returns the bytes of a plain value in memory.
template <class T>
std::string bytes_of(const T& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

}  // namespace tally
