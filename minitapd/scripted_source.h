// The tables of a script file, which is read again between calls whenever it changed.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "minitapd/reply_fault.h"
#include "minitapd/script.h"
#include "minitapd/tables.h"

namespace minitapd {

// Rows are served in file order. The key that is asked for decides where a walk goes on:
// behind the last row of the control index that has it, or else at the first row of the index with
// a greater one.
class ScriptedSource : public TableSource {
 public:
  // Loads the script. Throws ScriptError.
  explicit ScriptedSource(std::string path);

  // refresh loads the script again if its size, inode or modification time changed. A script with
  // an error leaves the tables as they were and is reported on standard error.
  void refresh();

  // next_fault counts a call of the procedure and returns the fault that the script has for it, or
  // null.
  const Fault* next_fault(std::uint32_t procedure);

  SystemInfo system_info() override;
  const ControlRow* control_row(Table table, std::int32_t index, bool next) override;
  void rows_after(Table table, std::int32_t control_index, const Key& start, std::size_t limit,
                  std::vector<Row>& out) override;
  std::optional<Row> row_at(Table table, std::int32_t control_index, const Key& key) override;
  Totals pdist_totals(std::int32_t control_index) override;

 private:
  struct FileStamp {
    off_t size = -1;
    ino_t inode = 0;
    std::time_t seconds = 0;
    long nanoseconds = 0;
    bool operator==(const FileStamp&) const = default;
  };
  [[nodiscard]] FileStamp stamp() const;
  void load();
  [[nodiscard]] std::size_t start_position(Table table, std::int32_t control_index,
                                           const Key& start) const;

  std::string path_;
  FileStamp loaded_;
  Script script_;
  // Per table the positions of its rows, sorted by control index, key and position.
  std::array<std::vector<std::uint32_t>, kTableCount> by_key_;
  std::map<std::uint32_t, std::uint64_t> fault_calls_;
  std::array<std::size_t, kTableCount> row_calls_{};
  std::array<std::size_t, kTableCount> control_calls_{};
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

}  // namespace minitapd
