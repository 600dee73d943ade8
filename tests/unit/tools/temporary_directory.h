// A directory of a test's own, gone with the test.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace tally {

class TemporaryDirectory {
 public:
  TemporaryDirectory() : path_(testing::TempDir() + "tallyctl-XXXXXX") {
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

}  // namespace tally
