// The canned agent serves what it says, and all pollers write the same bytes: without that no
// figure of this folder means anything.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
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
#include "bench/wire_bytes.h"
#include "daemon/clock.h"
#include "daemon/collection_types.h"
#include "files/file_format.h"

namespace tally::bench {
namespace {

constexpr std::uint32_t kIndex = 7;

std::vector<std::string> serve(const char* table, std::uint32_t rows) {
  return {"--port",  "0",   "--index", std::to_string(kIndex),
          "--table", table, "--rows",  std::to_string(rows)};
}

std::uint64_t number(const tapd_bytes& address) {
  std::uint64_t value = 0;
  for (u_int i = 0; i < address.tapd_bytes_len; ++i) value = value << 8 | address.tapd_bytes_val[i];
  return value;
}

TEST(CannedAgent, ServesEveryHostRowOnceWithCountersThatAdvance) {
  for (const std::uint32_t rows : {0U, 1U, 99U, 100U, 101U, 250U}) {
    SCOPED_TRACE(rows);
    const AgentProcess agent(serve("host", rows));
    const ClientHandle client = connect_stock(agent.port());
    for (std::uint32_t epoch = 0; epoch < 3; ++epoch) {
      std::uint32_t row = 0;
      const auto check = [&](std::span<const tapd_host_row> batch) {
        for (const tapd_host_row& host : batch) {
          EXPECT_EQ(number(host.hostAddress), mac_address(row));
          EXPECT_EQ(host.hostAddress.tapd_bytes_len, 6U);
          EXPECT_EQ(host.hostIndex, static_cast<int>(kIndex));
          EXPECT_EQ(host.hostInPkts, counter_value(row, 0, epoch));
          EXPECT_EQ(host.hostOutMulticastPkts, counter_value(row, 6, epoch));
          ++row;
        }
      };
      EXPECT_EQ(walk_host_rows(*client, kIndex, check), rows);
      EXPECT_EQ(row, rows);
      EXPECT_EQ(fetch_and_free(*client, TableKind::host, kIndex + 1), 0U);
      EXPECT_EQ(agent_up_time(*client), epoch * 100);
      next_epoch(*client);
    }
  }
}

TEST(CannedAgent, ServesMatrixRowsBehindAnyKey) {
  const AgentProcess agent(serve("matrix", 250));
  const ClientHandle client = connect_stock(agent.port());
  for (const std::uint32_t after : {1U, 100U, 160U, 249U, 250U}) {
    std::array<std::array<u_char, 6>, 2> addresses;
    const std::uint32_t hosts[] = {(after - 1) / kPeersOfAHost, (after - 1) % kPeersOfAHost};
    for (std::size_t end = 0; end < 2; ++end) {
      for (std::size_t i = 0; i < 6; ++i) {
        addresses[end][i] = static_cast<u_char>(mac_address(hosts[end]) >> (40 - 8 * i));
      }
    }
    tapd_matrix_key key{static_cast<int>(kIndex),
                        {6, addresses[0].data()},
                        {6, addresses[1].data()},
                        TAPD_BATCH,
                        TAPD_MODE,
                        0};
    tapd_matrix_rows reply{};
    ASSERT_EQ(matrix_table_get_1(&key, &reply, client.get()), RPC_SUCCESS);
    ASSERT_EQ(reply.rows.rows_len, std::min(100U, 250 - after));
    if (after < 250) {
      const tapd_matrix_row& first = reply.rows.rows_val[0];
      EXPECT_EQ(number(first.matrixSDSourceAddress), mac_address(after / kPeersOfAHost));
      EXPECT_EQ(number(first.matrixSDDestAddress), mac_address(after % kPeersOfAHost));
      EXPECT_EQ(first.matrixSDErrors, counter_value(after, 2, 0));
    }
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_tapd_matrix_rows), &reply);
  }
}

TEST(CannedAgent, ServesProtocolsAndTheirTotals) {
  const AgentProcess agent(serve("pdist", 150));
  const ClientHandle client = connect_stock(agent.port());
  next_epoch(*client);
  tapd_pdist_key key{static_cast<int>(kIndex), 100, TAPD_MODE, TAPD_BATCH};
  tapd_pdist_rows reply{};
  ASSERT_EQ(pdist_table_get_1(&key, &reply, client.get()), RPC_SUCCESS);
  ASSERT_EQ(reply.rows.rows_len, 50U);
  EXPECT_EQ(reply.rows.rows_val[0].protocolDirLocalIndex, 101);
  EXPECT_EQ(reply.rows.rows_val[0].protocolDistStatsOctets, counter_value(100, 1, 1));
  EXPECT_EQ(reply.rows.rows_val[0].protocol_tag, 1U);
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_tapd_pdist_rows), &reply);

  int index = static_cast<int>(kIndex);
  tapd_pdist_totals_reply totals{};
  ASSERT_EQ(pdist_source_totals_get_1(&index, &totals, client.get()), RPC_SUCCESS);
  EXPECT_EQ(totals.status, 0);
  EXPECT_EQ(totals.total_pkts, 1000U);
  tapd_control_key first{0, TAPD_REQUEST_NEXT};
  tapd_host_control_reply control{};
  ASSERT_EQ(host_control_getnext_1(&first, &control, client.get()), RPC_SUCCESS);
  EXPECT_NE(control.status, 0);
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_tapd_host_control_reply), &control);
}

TEST(CannedAgent, RefusesWhatItDoesNotKnow) {
  const AgentProcess agent(serve("host", 1));
  const ClientHandle client = connect_stock(agent.port());
  tapd_indexed_key key{1, 0, TAPD_REQUEST_NEXT};
  tapd_vlan_row_reply reply{};
  EXPECT_EQ(vlan_table_get_1(&key, &reply, client.get()), RPC_PROCUNAVAIL);

  // A call of RPC version 3, and one that claims to be longer than any request.
  for (const std::array<std::uint32_t, 4> words :
       {std::array{0x8000'000CU, 1U, 0U, 3U}, std::array{0x8FFF'FFFFU, 1U, 0U, 2U}}) {
    const int connection = connect_raw(agent.port());
    std::uint8_t bytes[16];
    std::uint8_t* to = bytes;
    for (const std::uint32_t word : words) to = put_u32(to, word);
    ASSERT_EQ(send(connection, bytes, sizeof bytes, 0), static_cast<ssize_t>(sizeof bytes));
    EXPECT_LE(recv(connection, bytes, sizeof bytes, 0), 0);
    close(connection);
  }
}

std::string content(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

template <class... Value>
std::string little_endian(Value... values) {
  std::string bytes;
  (bytes.append(reinterpret_cast<const char*>(&values), sizeof values), ...);
  return bytes;
}

std::string big_endian(std::uint64_t number, std::size_t length) {
  std::string bytes;
  for (std::size_t i = length; i-- > 0;) bytes += static_cast<char>(number >> (8 * i));
  return bytes;
}

// The record of a canned row, as files have it.
std::string record(TableKind kind, std::uint32_t row, std::uint32_t epoch) {
  const auto ip = [](std::uint32_t host) {
    return little_endian(4U) + big_endian(ip_address(host), 4) + std::string(12, '\0');
  };
  const std::uint32_t source = row / kPeersOfAHost;
  const std::uint32_t dest = row % kPeersOfAHost;
  std::string bytes;
  if (kind == TableKind::host) bytes = big_endian(mac_address(row), 6);
  if (kind == TableKind::matrix) {
    bytes = big_endian(mac_address(source), 6) + big_endian(mac_address(dest), 6);
  }
  if (kind == TableKind::nlhost) bytes = little_endian(kProtocol) + ip(row);
  if (kind == TableKind::nlmatrix) bytes = little_endian(kProtocol) + ip(source) + ip(dest);
  if (kind == TableKind::dshost) {
    bytes = little_endian(kGroup, kProtocol, kAddressWord) + ip(row).substr(4);
  }
  for (std::uint32_t field = 0; field < table_shape(kind).counters; ++field) {
    bytes += little_endian(static_cast<double>(counter_value(row, field, epoch)));
  }
  return bytes;
}

std::filesystem::path own_directory() {
  const auto path =
      std::filesystem::temp_directory_path() / ("pollers." + std::to_string(getpid()));
  std::filesystem::create_directory(path);
  return path;
}

// Every row once, whoever asks: the stock client counts them, the daemon and the bare poller write
// the same down.
TEST(Pollers, FetchEveryRowOfEveryTable) {
  const auto directory = own_directory();
  const SamplePaths paths{directory / "last", directory / "prev", directory / "delta"};
  for (const TableKind kind : {TableKind::host, TableKind::matrix, TableKind::nlhost,
                               TableKind::nlmatrix, TableKind::dshost}) {
    const TableShape& shape = table_shape(kind);
    for (const std::uint32_t rows : {0U, 1U, 100U, 250U}) {
      SCOPED_TRACE(std::string(shape.name) + " " + std::to_string(rows));
      const AgentProcess agent(serve(shape.name, rows));
      const ClientHandle client = connect_stock(agent.port());
      next_epoch(*client);
      EXPECT_EQ(fetch_and_free(*client, kind, kIndex), rows);
      EXPECT_EQ(fetch_and_free(*client, kind, kIndex + 1), 0U);
      write_sample(paths.prev, shape.type, {}, now_seconds() - 100);
      PolledAgent(agent.port(), shape.type, kIndex).poll(paths);
      std::string expected;
      for (std::uint32_t row = 0; row < rows; ++row) expected += record(kind, row, 1);
      EXPECT_TRUE(content(paths.last).substr(sizeof(FileHeader)) == expected);

      const std::string delta = content(paths.delta);
      FileHeader header;
      std::memcpy(&header, delta.data(), sizeof header);
      const int connection = connect_raw(agent.port());
      bare_poll(connection, kind, kIndex, paths, header.sample_time);
      close(connection);
      EXPECT_TRUE(content(paths.last).substr(sizeof(FileHeader)) == expected);
      EXPECT_TRUE(content(paths.delta) == delta);
    }
  }
  std::filesystem::remove_all(directory);
}

// Each poller in turn takes the same sample: 250 rows now, of which the previous sample had some,
// and others that have gone.
TEST(Pollers, WriteTheSameBytes) {
  const auto directory = own_directory();
  const SamplePaths paths{directory / "last", directory / "prev", directory / "delta"};
  const AgentProcess agent(serve("host", 250));
  const ClientHandle client = connect_stock(agent.port());
  PolledAgent daemon(agent.port(), tally::kHost, kIndex);
  const int connection = connect_raw(agent.port());
  next_epoch(*client);
  next_epoch(*client);

  const std::vector<unsigned char> before = host_records(400, 1);
  const std::size_t record = before.size() / 400;
  for (const auto& [first, count] : {std::pair{0, 250}, {0, 0}, {100, 300}, {0, 60}, {300, 100}}) {
    SCOPED_TRACE(first);
    write_sample(paths.prev, tally::kHost,
                 std::span(before).subspan(static_cast<std::size_t>(first) * record,
                                           static_cast<std::size_t>(count) * record),
                 now_seconds() - 100);
    daemon.poll(paths);
    const std::string last = content(paths.last);
    const std::string delta = content(paths.delta);
    ASSERT_GT(delta.size(), sizeof(FileHeader));
    FileHeader header;
    std::memcpy(&header, last.data(), sizeof header);
    EXPECT_EQ(header.up_time, 200U);

    map_poll(*client, kIndex, paths, header.sample_time);
    EXPECT_TRUE(content(paths.last) == last);
    EXPECT_TRUE(content(paths.delta) == delta);

    bare_poll(connection, TableKind::host, kIndex, paths, header.sample_time);
    EXPECT_TRUE(content(paths.last).substr(sizeof header) == last.substr(sizeof header));
    EXPECT_TRUE(content(paths.delta) == delta);
  }
  close(connection);
  std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace tally::bench
