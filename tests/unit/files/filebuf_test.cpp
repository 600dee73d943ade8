// The record cache over real files: edge sizes, partial records, disks that are full.
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

class FilebufTest : public testing::Test {
 protected:
  void SetUp() override { take_log(); }

  void open_for_writing() {
    file_ = open_file((directory_ / "f").c_str(), O_WRONLY | O_CREAT | O_TRUNC);
    filebuf_init(cache_, file_.get());
  }
  void open_with(const std::string& bytes) {
    write_file(directory_ / "f", bytes);
    file_ = open_file((directory_ / "f").c_str(), O_RDONLY);
    filebuf_init(cache_, file_.get());
  }
  std::string written() const { return read_file(directory_ / "f"); }

  TemporaryDirectory directory_;
  UniqueFd file_;
  RecordCache cache_;
};

TEST_F(FilebufTest, WritesInBlocksOfWholeRecords) {
  const struct {
    std::vector<std::uint32_t> puts;
    std::size_t in_file;  // before the flush
  } cases[] = {
      {{}, 0},
      {{1}, 0},
      {{8192}, 0},
      {{8192, 1}, 8192},
      {{8191, 1}, 0},
      {{8191, 2}, 8191},
      {{16, 8176, 62}, 8192},
      {std::vector<std::uint32_t>(132, 62), 0},
      {std::vector<std::uint32_t>(133, 62), 8184},
      {{5000, 5000, 5000}, 10000},
  };
  for (const auto& [puts, in_file] : cases) {
    open_for_writing();
    std::string expected;
    for (const std::uint32_t length : puts) {
      const std::string record = pattern(length);
      ASSERT_EQ(filebuf_put(cache_, record.data(), length), 1);
      expected += record;
    }
    EXPECT_EQ(written(), expected.substr(0, in_file));
    EXPECT_EQ(filebuf_flush(cache_), 1);
    EXPECT_EQ(filebuf_flush(cache_), 1);
    EXPECT_EQ(written(), expected);
  }
  const std::string huge = pattern(8193);
  EXPECT_EQ(filebuf_put(cache_, huge.data(), 8193), 0);
  EXPECT_EQ(filebuf_put(cache_, huge.data(), 0xffffffff), 0);
  EXPECT_TRUE(take_log().empty());
}

// A failed write keeps what waited: it can be written once there is room again.
TEST_F(FilebufTest, TellsFailedAndShortWrites) {
  const struct {
    std::size_t room;
    bool flush;
    const char* text;
  } cases[] = {
      {0, false, "Unable to write poll cache to file."},
      {1, false, "Not all tallyd cached data written to file."},
      {8191, false, "Not all tallyd cached data written to file."},
      {0, true, "Unable to flush poll cache to file."},
      {8191, true, "Not all cached data flushed to file."},
  };
  const std::string block = pattern(8192);
  for (const auto& [room, flush, text] : cases) {
    SCOPED_TRACE(text);
    open_for_writing();
    ASSERT_EQ(filebuf_put(cache_, block.data(), 8192), 1);
    {
      const FileSizeLimit limit(room);
      EXPECT_EQ(flush ? filebuf_flush(cache_) : filebuf_put(cache_, "x", 1), 0);
    }
    EXPECT_EQ(take_log(), std::vector{warning_line(text)});
    EXPECT_EQ(filebuf_flush(cache_), 1);
    EXPECT_EQ(written(), block.substr(0, room) + block);
  }
  filebuf_init(cache_, -1);
  EXPECT_EQ(filebuf_put(cache_, "x", 1), 1);
  EXPECT_EQ(filebuf_flush(cache_), 0);
  EXPECT_EQ(take_log(), std::vector{warning_line("Unable to flush poll cache to file.")});
}

TEST_F(FilebufTest, ReadsWholeRecords) {
  const LogLine read_error = warning_line("Error 1 reading to fill file cache.");
  const LogLine partial = warning_line("Error 2 reading to fill file cache.");
  const LogLine no_next = debug_line("filebuf_getnext: ERROR filling cache!");
  const struct {
    std::uint32_t record_size;
    std::size_t file_size;
    std::uint32_t first_fill;  // records
    std::uint32_t records;
    std::vector<LogLine> log;  // of the walk
  } cases[] = {
      {62, 0, 0, 0, {}},
      {62, 62, 1, 1, {}},
      {62, 62 * 132, 132, 132, {}},
      {62, 62 * 133, 132, 133, {}},
      {62, 62 * 400, 132, 400, {}},
      {8192, 8192 * 3, 1, 3, {}},
      {5000, 10000, 1, 2, {}},
      {1, 8193, 8192, 8193, {}},
      {62, 62 * 132 + 61, 132, 132, {partial, no_next}},
      {62, 61, 0, 0, {partial, no_next}},
      {5000, 4999, 0, 0, {partial, no_next}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.file_size);
    const std::string bytes = pattern(test.file_size);
    const auto expect_record = [&](const unsigned char* record, std::size_t number) {
      EXPECT_EQ(std::string(reinterpret_cast<const char*>(record), test.record_size),
                bytes.substr(number * test.record_size, test.record_size));
      EXPECT_EQ(record, filebuf_current(cache_));
    };
    open_with(bytes);
    std::size_t records = 0;
    while (const unsigned char* record = filebuf_getnext(cache_, test.record_size)) {
      expect_record(record, records++);
    }
    EXPECT_EQ(records, test.records);
    EXPECT_EQ(take_log(), test.log);

    // The other pattern: fill first.
    open_with(bytes);
    const int filled = filebuf_fill(cache_, test.record_size);
    EXPECT_EQ(filled, test.first_fill > 0 || test.log.empty());
    if (filled && test.first_fill > 0) {
      EXPECT_EQ(cache_.count, test.first_fill);
      records = 0;
      const unsigned char* record = filebuf_current(cache_);
      for (; record; record = filebuf_getnext(cache_, test.record_size)) {
        expect_record(record, records++);
      }
      EXPECT_EQ(records, test.records);
    }
    take_log();
  }
  filebuf_init(cache_, -1);
  EXPECT_EQ(filebuf_getnext(cache_, 62), nullptr);
  EXPECT_EQ(take_log(), (std::vector{read_error, no_next}));
}

// --- names and headers ---

TEST(FileFormat, Names) {
  const std::string prefix = std::string(kDataDirectory) + "/";
  const struct {
    std::uint32_t type;
    std::uint32_t index;
    FileKind kind;
    const char* name;
  } cases[] = {
      {0, 3, FileKind::delta, "host_3_delta.bin"},
      {0, 0, FileKind::last, "host_0_last.bin"},
      {1, 65535, FileKind::prev, "matrix_65535_prev.bin"},
      {2, 0xffffffff, FileKind::delta, "pdist_4294967295_delta.bin"},
      {10, 7, FileKind::last, "dsmatrix_7_last.bin"},
      {12, 9, FileKind::delta, "etherstats_delta.bin"},
      {13, 9, FileKind::prev, "supvlan_prev.bin"},
      {14, 0, FileKind::last, "ifstats_last.bin"},
  };
  for (const auto& [type, index, kind, name] : cases) {
    EXPECT_EQ(collection_path(type, index, kind).text, prefix + name);
    const CollectionPaths paths = collection_paths(type, index);
    const CollectionPath& path = kind == FileKind::last   ? paths.last
                                 : kind == FileKind::prev ? paths.prev
                                                          : paths.delta;
    EXPECT_EQ(path.text, prefix + name);
  }
  take_log();
  for (const std::uint32_t type : {11U, 15U, 0xffffffffU}) remove_collection_files(type, 1);
  EXPECT_EQ(take_log(),
            std::vector(3, debug_line("Attempt to remove data for invalid collection type")));
}

TEST(FileFormat, HeadersAndIntervals) {
  const TemporaryDirectory directory;
  for (const std::size_t size : {0U, 15U, 16U, 17U}) {
    write_file(directory / "f", pattern(size));
    FileHeader header{};
    EXPECT_EQ(read_file_header(open_file((directory / "f").c_str(), O_RDONLY).get(), header),
              size >= 16);
    if (size >= 16) {
      EXPECT_EQ(bytes_of(header), pattern(16));
    }
  }
  EXPECT_TRUE(file_exists((directory / "f").c_str()));
  EXPECT_FALSE(file_exists((directory / "g").c_str()));
  EXPECT_EQ(seconds_between(100, 160), 60);
  EXPECT_EQ(seconds_between(160, 100), -60);
  EXPECT_EQ(seconds_between(-2147483647 - 1, 2147483647), -1);  // wraps, as its field does
}

}  // namespace
}  // namespace tally
