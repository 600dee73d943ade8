// How rows are read, where the end-to-end tests do not come: dsmatrix, which no message creates,
// and agents that go round in a circle.
#include <gtest/gtest.h>
#include <minitapd/tapd.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "agent/mac_types.h"
#include "agent/procedures.h"
#include "agent/smon_types.h"
#include "agent/type_facts.h"
#include "support/scripted_client.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

constexpr int kIndex = 5;

// Two rows of dsmatrix differ only behind the 16 address bytes that a record keeps. It is rpcgen
// that writes them, so that every member is seen to be where the agent has it.
void fill(u_char (&address)[20], u_char start, std::uint32_t n) {
  std::fill_n(address, 16, start);
  for (int i = 0; i < 4; ++i) address[16 + i] = static_cast<u_char>(n >> 8 * i);
}

Bytes dsmatrix_reply(std::uint32_t n, int index = kIndex, std::uint32_t time_mark = 0) {
  tapd_dsmatrix_row_reply row{0, index, time_mark, n / 2, 7, {}, {}, -11, 22, -33, n, ~0ULL};
  fill(row.source_address, 0xaa, n);
  fill(row.dest_address, 0xbb, n * 3);
  return encode_bytes(xdr_tapd_dsmatrix_row_reply, row);
}

std::string dsmatrix_record(std::uint32_t n) {
  return bytes_of(n / 2) + bytes_of(7) + bytes_of(22) + std::string(16, '\xaa') + bytes_of(-33) +
         std::string(16, '\xbb') + bytes_of(-11) + bytes_of(static_cast<double>(n)) +
         bytes_of(0x1p64);
}

ScriptedClient::Call dsmatrix_request(int after) {
  tapd_dsmatrix_key key{kIndex, 0, 0, 0, {}, {}, 0, 0, 0, 2};
  if (after >= 0) {
    const auto n = static_cast<std::uint32_t>(after);
    key = {kIndex, 0, n / 2, 7, {}, {}, -11, 22, -33, 2};
    fill(key.source_address, 0xaa, n);
    fill(key.dest_address, 0xbb, n * 3);
  }
  return {141, encode_bytes(xdr_tapd_dsmatrix_key, key)};
}

// records_of reads to the end, or until there are `most`.
std::vector<std::string> records_of(const CollectionOps& ops, ScriptedClient& agent,
                                    std::size_t most) {
  RowIterator rows;
  rows.control_index = kIndex;
  rows.client = &agent.client();
  std::vector<std::string> records;
  while (records.size() < most) {
    const unsigned char* record = ops.rpc_getnext(rows);
    if (!record) {
      EXPECT_EQ(rows.reply.as<void>(), nullptr);
      break;
    }
    records.emplace_back(reinterpret_cast<const char*>(record), ops.record_size);
  }
  return records;
}

TEST(RowIteration, DsMatrix) {
  const ScriptedClient::Reply ends[] = {{},
                                        dsmatrix_reply(3, kIndex + 1),
                                        dsmatrix_reply(3, kIndex, 1U << 31),
                                        dsmatrix_reply(2),
                                        Bytes(dsmatrix_reply(3).size(), 1)};
  for (const auto& end : ends) {
    ScriptedClient agent({dsmatrix_reply(0), dsmatrix_reply(1), dsmatrix_reply(2), end});
    take_log();
    EXPECT_EQ(records_of(agent_type_ops(kDsMatrix), agent, 9),
              (std::vector{dsmatrix_record(0), dsmatrix_record(1), dsmatrix_record(2)}));
    EXPECT_EQ(agent.calls(), (std::vector{dsmatrix_request(-1), dsmatrix_request(0),
                                          dsmatrix_request(1), dsmatrix_request(2)}));
    EXPECT_EQ(take_log(), end ? std::vector<LogLine>{}
                              : std::vector{debug_line("dsmatrix_rpc_getnext: RPC failed")});
  }
}

TEST(RowIteration, EndsInACircle) {
  const auto host = [](std::uint32_t n) {
    HostRowList reply;
    const std::uint8_t address = static_cast<std::uint8_t>(n);
    reply.rows.next_row() = {1, ByteList({&address, 1}), 9, kIndex, 1, 2, 3, 4, 5, 6, 7};
    return encode_bytes(xdr_wire<HostRowList>, reply);
  };
  for (const bool batched : {true, false}) {
    for (std::uint32_t length = 1; length <= 20; ++length) {
      std::uint32_t calls = 0;
      ScriptedClient agent([&](const ScriptedClient::Call&) {
        const std::uint32_t n = calls++ % length;
        return batched ? host(n) : dsmatrix_reply(n);
      });
      static_cast<void>(records_of(agent_type_ops(batched ? kHost : kDsMatrix), agent, 200));
      EXPECT_LE(calls, 4 * length) << length;
      EXPECT_GT(calls, length);
    }
  }
}

// What an agent may call a row, and no request can lead to: an id that is the start's own.
TEST(RowIteration, VlanZeroIsNotRead) {
  VlanRowReply row{0, 0, 1, 2, 3, 4, 5, kIndex};
  ScriptedClient agent(
      std::vector<ScriptedClient::Reply>{encode_bytes(xdr_wire<VlanRowReply>, row)});
  EXPECT_TRUE(records_of(vlan_ops, agent, 1).empty());
}

}  // namespace
}  // namespace tally
