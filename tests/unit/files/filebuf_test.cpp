// The record cache over real files, at the edges of its buffer. End-to-end tests cover cut records
// and full disks.
#include "files/filebuf.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "files/file_format.h"
#include "files/file_lock.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 31 + i / 251);
  return bytes;
}

TEST(Filebuf, WritesAndReadsBlocksOfWholeRecords) {
  const TemporaryDirectory directory;
  const std::string path = directory / "f";
  RecordCache cache;
  take_log();
  const struct {
    std::uint32_t size;
    std::size_t records;
    std::size_t in_file;  // bytes, before the flush
  } cases[] = {{62, 0, 0},       {62, 132, 0},    {62, 133, 8184}, {8192, 1, 0},
               {8192, 3, 16384}, {5000, 2, 5000}, {16, 512, 0},    {16, 513, 8192}};
  for (const auto& [size, records, in_file] : cases) {
    SCOPED_TRACE(records * size);
    const std::string bytes = pattern(records * size);
    const UniqueFd file = open_file(path.c_str(), O_RDWR | O_CREAT | O_TRUNC);
    filebuf_init(cache, file.get());
    for (std::size_t at = 0; at < bytes.size(); at += size) {
      ASSERT_EQ(filebuf_put(cache, &bytes[at], size), 1);
    }
    EXPECT_EQ(read_file(path), bytes.substr(0, in_file));
    EXPECT_EQ(filebuf_flush(cache), 1);
    EXPECT_EQ(filebuf_flush(cache), 1);
    EXPECT_EQ(read_file(path), bytes);
    lseek(file.get(), 0, SEEK_SET);
    std::string walked;
    while (const unsigned char* record = filebuf_getnext(cache, size)) {
      EXPECT_EQ(record, filebuf_current(cache));
      walked.append(reinterpret_cast<const char*>(record), size);
    }
    EXPECT_EQ(walked, bytes);
  }
  const std::string huge = pattern(8193);
  EXPECT_EQ(filebuf_put(cache, huge.data(), 8193), 0);
  EXPECT_EQ(filebuf_put(cache, huge.data(), 0xffffffff), 0);
  EXPECT_TRUE(take_log().empty());
  filebuf_init(cache, -1);
  EXPECT_EQ(filebuf_getnext(cache, 62), nullptr);
  EXPECT_EQ(take_log(), (std::vector{warning_line("Error 1 reading to fill file cache."),
                                     debug_line("filebuf_getnext: ERROR filling cache!")}));
}

TEST(FileFormat, IllegalTypesAndIntervals) {
  take_log();
  for (const std::uint32_t type : {11U, 15U, 0xffffffffU}) remove_collection_files(type, 1);
  EXPECT_EQ(take_log(),
            std::vector(3, debug_line("Attempt to remove data for invalid collection type")));
  EXPECT_EQ(seconds_between(160, 100), -60);
  EXPECT_EQ(seconds_between(-2147483647 - 1, 2147483647), -1);  // wraps, like its field
}

}  // namespace
}  // namespace tally
