// How rows are read: what is asked for, what becomes of the answers, and where a table ends. Shown
// with dsmatrix, which no message creates; the end-to-end tests compare the records and requests of
// all others.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "agent/dsmon_types.h"
#include "agent/mac_types.h"
#include "agent/smon_types.h"
#include "agent/type_facts.h"
#include "support/syslog_capture.h"
#include "support/temporary_directory.h"

namespace tally {
namespace {

constexpr int kForeign = 6;

struct Served {
  int index;
  std::uint32_t n;
  std::uint32_t time_mark = 0;
};

std::string four_bytes(std::uint32_t n) {
  return {static_cast<char>(n >> 24), static_cast<char>(n >> 16), static_cast<char>(n >> 8),
          static_cast<char>(n)};
}

// Two rows differ only behind the 16 address bytes that a record keeps.
template <class Field>
void fill(Field& field, char start, std::uint32_t n) {
  const std::string bytes = std::string(16, start) + four_bytes(n);
  std::copy(bytes.begin(), bytes.end(), std::begin(field));
}

Bytes reply_of(const Served& row) {
  const auto [index, n, time_mark] = row;
  DsMatrixRowReply reply{0, index, time_mark, n / 2, 7, {}, {}, -11, 22, -33, n, ~0ULL};
  fill(reply.source_address, '\xaa', n);
  fill(reply.dest_address, '\xbb', n * 3);
  return ours(reply);
}

Bytes no_row() {
  DsMatrixRowReply reply{};
  reply.status = 1;
  return ours(reply);
}

std::string record_of(std::uint32_t n) {
  return bytes_of(n / 2) + bytes_of(7) + bytes_of(22) + std::string(16, '\xaa') + bytes_of(-33) +
         std::string(16, '\xbb') + bytes_of(-11) + bytes_of(static_cast<double>(n)) +
         bytes_of(0x1p64);
}

// request_for asks for the row after row n, or for the first one.
ScriptedClient::Call request_for(std::optional<std::uint32_t> n) {
  tapd_dsmatrix_key key{};
  key.dsmonMatrixCtlIndex = kIndex;
  key.request = 2;
  if (n) {
    key.dsmonAggGroupIndex = *n / 2;
    key.protocolDirLocalIndex = 7;
    fill(key.source_address, '\xaa', *n);
    fill(key.dest_address, '\xbb', *n * 3);
    key.key_word_1 = -11;
    key.key_word_2 = 22;
    key.key_word_3 = -33;
  }
  return {141, theirs<DsMatrixKey>(key)};
}

RowIterator& begin(RowIterator& rows, ScriptedClient& agent) {
  rows.control_index = kIndex;
  rows.client = &agent.client();
  std::memset(rows.record, '#', sizeof rows.record);
  return rows;
}

// records_of reads to the end, or until there are `most`.
std::vector<std::string> records_of(RowIterator& rows, std::size_t most) {
  std::vector<std::string> records;
  while (records.size() < most) {
    const unsigned char* record = dsmatrix_ops.rpc_getnext(rows);
    if (!record) break;
    records.emplace_back(reinterpret_cast<const char*>(record), dsmatrix_ops.record_size);
  }
  return records;
}

TEST(RowIteration, FromRepliesToRecords) {
  const struct {
    const char* label;
    std::vector<Served> served;  // in turn; then there are no more rows, or a call fails
    std::uint32_t rows;          // 0 to rows - 1 are expected
    bool fails = false;
  } cases[] = {
      {"empty table", {}, 0},
      {"no answer", {}, 0, true},
      {"three rows", {{kIndex, 0}, {kIndex, 1}, {kIndex, 2}}, 3},
      {"fails behind a row", {{kIndex, 0}}, 1, true},
      {"foreign first row", {{kForeign, 0}}, 0},
      {"foreign row behind one", {{kIndex, 0}, {kForeign, 1}}, 1},
      {"another time mark", {{kIndex, 0}, {kIndex, 1, 9}}, 1},
      {"the first with a time mark", {{kIndex, 0, 1U << 31}}, 0},
      {"the only row again", {{kIndex, 0}, {kIndex, 0}}, 1},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.label);
    std::vector<ScriptedClient::Reply> replies;
    for (const Served& row : test.served) replies.emplace_back(reply_of(row));
    if (!test.fails) replies.emplace_back(no_row());
    std::vector<ScriptedClient::Call> calls{request_for({})};
    std::vector<std::string> expected;
    for (std::uint32_t n = 0; n < test.rows; ++n) {
      expected.push_back(record_of(n));
      calls.push_back(request_for(n));
    }
    ScriptedClient agent(replies);
    RowIterator rows;
    take_log();
    EXPECT_EQ(records_of(begin(rows, agent), expected.size() + 1), expected);
    EXPECT_EQ(agent.calls(), calls);
    EXPECT_EQ(take_log(), std::vector(test.fails, debug_line("dsmatrix_rpc_getnext: RPC failed")));
  }
}

// An agent that goes round in a circle gets to the end, too, with rows that come in lists as well.
TEST(RowIteration, EndsInACircle) {
  for (std::uint32_t length = 1; length <= 20; ++length) {
    for (const bool lists : {false, true}) {
      std::uint32_t calls = 0;
      ScriptedClient agent([&](const auto&) {
        const std::uint32_t n = calls++ % length;
        if (!lists) return reply_of({kIndex, n});
        HostRowList reply;
        HostRow& row = reply.rows.next_row();
        row.hostIndex = kIndex;
        *row.hostAddress.resize(1) = static_cast<std::uint8_t>(n + 1);
        return ours(std::move(reply));
      });
      RowIterator rows;
      begin(rows, agent);
      const CollectionOps& ops = lists ? host_ops : dsmatrix_ops;
      for (int row = 0; row < 200 && ops.rpc_getnext(rows);) ++row;
      EXPECT_LE(calls, 4 * length) << length;
      EXPECT_GT(calls, length);
    }
  }
}

// What an agent may call a row, and no request can lead to: an id that is the start's own.
TEST(RowIteration, VlanZeroIsNotRead) {
  ScriptedClient agent({ours(VlanRowReply{0, 0, 1, 2, 3, 4, 5, kIndex})});
  RowIterator rows;
  EXPECT_EQ(vlan_ops.rpc_getnext(begin(rows, agent)), nullptr);
}

}  // namespace
}  // namespace tally
