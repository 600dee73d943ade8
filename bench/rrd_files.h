// Rows in librrd: one round-robin file a host, seven data sources each, one update a row.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tally::bench {

// RrdFiles keeps the files of `rows` host rows in a directory of its own, which must not exist
// yet, and removes it at the end. librrd is told the time, 60 seconds from update to update.
class RrdFiles {
 public:
  // Throws when a file cannot be made.
  RrdFiles(std::string directory, std::uint32_t rows);
  RrdFiles(const RrdFiles&) = delete;
  RrdFiles& operator=(const RrdFiles&) = delete;
  ~RrdFiles();

  // update writes the counters of the next epoch of every row. Throws when one fails.
  void update();

 private:
  std::string directory_;
  std::vector<std::string> paths_;
  std::uint32_t epoch_ = 0;
};

}  // namespace tally::bench
