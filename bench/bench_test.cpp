// The canned agent serves what it says, and all pollers write the same bytes: without that no
// figure of this folder means anything.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "bench/agent_process.h"
#include "bench/bare_poller.h"
#include "bench/map_poller.h"
#include "bench/poll_subject.h"
#include "bench/sample_table.h"
#include "bench/stock_client.h"
#include "daemon/base/clock.h"
#include "daemon/base/collection_types.h"
#include "files/file_format.h"

namespace tally::bench {
namespace {

constexpr std::uint32_t kIndex = 7;
constexpr std::uint32_t kRowsBefore = 400;

std::string content(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

class Pollers : public testing::Test {
 protected:
  Pollers() { std::filesystem::create_directory(directory_); }
  ~Pollers() override { std::filesystem::remove_all(directory_); }

  static AgentProcess serve(TableKind kind, std::uint32_t rows) {
    return AgentProcess({"--port", "0", "--index", std::to_string(kIndex), "--table",
                         table_shape(kind).name, "--rows", std::to_string(rows)});
  }

  // records returns what the last sample holds behind its header.
  std::string records() const { return content(paths_.last).substr(sizeof(FileHeader)); }

  void write_prev(TableKind kind, std::string_view records) const {
    write_sample(paths_.prev, table_shape(kind).type,
                 {reinterpret_cast<const unsigned char*>(records.data()), records.size()},
                 now_seconds() - 100);
  }

  // rows_in returns the records of a whole table in an epoch, as the daemon writes them.
  std::string rows_in(std::uint32_t epoch, TableKind kind, std::uint32_t rows) const {
    const AgentProcess agent = serve(kind, rows);
    for (std::uint32_t i = 0; i < epoch; ++i) next_epoch(*connect_stock(agent.port()));
    write_prev(kind, {});
    PolledAgent(agent.port(), table_shape(kind).type, kIndex).poll(paths_);
    if (kind == TableKind::host) {
      const auto expected = host_records(rows, epoch);
      EXPECT_TRUE(records() == std::string(expected.begin(), expected.end()));
    }
    return records();
  }

  void compare(TableKind kind, std::uint32_t rows) const {
    const std::string before = rows_in(1, kind, kRowsBefore);
    const std::string now = rows_in(2, kind, rows);
    const std::size_t record = before.size() / kRowsBefore;
    const std::size_t key = record - table_shape(kind).counters * sizeof(double);
    for (std::size_t at = record; at < before.size(); at += record) {
      ASSERT_LT(before.substr(at - record, key), before.substr(at, key)) << "every row once";
    }
    ASSERT_EQ(now.size(), rows * record);

    const AgentProcess agent = serve(kind, rows);
    const ClientHandle client = connect_stock(agent.port());
    next_epoch(*client);
    next_epoch(*client);
    EXPECT_EQ(fetch_and_free(*client, kind, kIndex), rows);
    EXPECT_EQ(fetch_and_free(*client, kind, kIndex + 1), 0U);
    PolledAgent daemon(agent.port(), table_shape(kind).type, kIndex);
    const int connection = connect_raw(agent.port());
    // The previous sample had these rows, some of which have gone: they are carried forward.
    for (const auto& [first, end] :
         {std::pair{0U, 250U}, {0, 0}, {100, 400}, {0, 60}, {300, 400}}) {
      SCOPED_TRACE("previous rows from " + std::to_string(first));
      write_prev(kind, before.substr(first * record, (end - first) * record));
      const std::uint32_t gone = std::max(first, rows);
      const std::string expected =
          now + (gone < end ? before.substr(gone * record, (end - gone) * record) : "");
      daemon.poll(paths_);
      EXPECT_TRUE(records() == expected);
      const std::string delta = content(paths_.delta);
      EXPECT_EQ((delta.size() - sizeof(FileHeader)) / record, rows);
      FileHeader header;
      std::memcpy(&header, content(paths_.last).data(), sizeof header);
      EXPECT_EQ(header.up_time, 200U);

      bare_poll(connection, kind, kIndex, paths_, header.sample_time);
      EXPECT_TRUE(records() == expected && content(paths_.delta) == delta) << "bare";
      if (kind != TableKind::host) continue;
      map_poll(*client, kIndex, paths_, header.sample_time);
      EXPECT_TRUE(records() == expected && content(paths_.delta) == delta) << "map";
    }
    close(connection);
  }

 private:
  std::filesystem::path directory_ =
      std::filesystem::temp_directory_path() / ("pollers." + std::to_string(getpid()));
  SamplePaths paths_{directory_ / "last", directory_ / "prev", directory_ / "delta"};
};

TEST_F(Pollers, WriteTheSameBytes) {
  for (const TableKind kind : {TableKind::host, TableKind::matrix, TableKind::nlhost,
                               TableKind::nlmatrix, TableKind::dshost}) {
    for (const std::uint32_t rows : {0U, 1U, 100U, 250U}) {
      SCOPED_TRACE(std::string(table_shape(kind).name) + ", rows: " + std::to_string(rows));
      compare(kind, rows);
    }
  }
}

}  // namespace
}  // namespace tally::bench
