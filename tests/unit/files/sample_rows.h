// Sample rows for the tests of the merges.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <string>

#include "files/file_lock.h"
#include "support/temporary_directory.h"

namespace tally {

struct Row {
  std::uint32_t key;
  std::uint32_t count;
};
using Rows = std::map<std::uint32_t, std::uint32_t>;  // key, count

// A record starts with its row; the rest follows from that.
inline std::string record(const Row& row, std::uint32_t size) {
  return bytes_of(row) + std::string(size - sizeof row, static_cast<char>(row.key + row.count));
}
inline std::string records(const Rows& rows, std::uint32_t size) {
  std::string bytes;
  for (const auto& [key, count] : rows) bytes += record({key, count}, size);
  return bytes;
}
inline Row row_of(const unsigned char* record) {
  Row row;
  std::memcpy(&row, record, sizeof row);
  return row;
}

// Keys are small in these tests.
inline int difference(const Row& a, const Row& b) {
  return static_cast<int>(a.key) - static_cast<int>(b.key);
}

inline Rows rows_from(std::uint32_t first, std::uint32_t number, std::uint32_t count) {
  Rows rows;
  for (std::uint32_t i = 0; i < number; ++i) rows[first + i] = count;
  return rows;
}
inline void expect_locked(const std::string& path) {
  const UniqueFd reader = open_file(path.c_str(), O_RDONLY);
  EXPECT_NE(flock(reader.get(), LOCK_SH | LOCK_NB), 0) << "written without a lock";
}

}  // namespace tally
