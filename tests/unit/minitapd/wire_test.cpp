// Every member of every reply, read from the agent's binary through the stubs that rpcgen makes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "agent_process.h"
#include "minitapd/procedures.h"
#include "stub_reply.h"

namespace minitapd {
namespace {

using testing::AgentProcess;
using testing::Client;
using ::testing::ElementsAre;
using testing::Reply;
using ::testing::StartsWith;
using testing::TempFile;

std::string text(const tapd_bytes& bytes) {
  return hex_with_colons(
      {reinterpret_cast<const char*>(bytes.tapd_bytes_val), bytes.tapd_bytes_len});
}

std::string text(const tapd_address20& bytes) {
  return hex_with_colons({reinterpret_cast<const char*>(bytes), sizeof bytes});
}

const char* const kEverything = R"({
  "system": {"descr": "d", "up_time": 77, "text_2": "t2", "text_5": "t5", "services": 72},
  "control": {
    "host": [{"index": 11, "owner": "a", "status": 1, "fields": [1, 2, 3]}],
    "matrix": [{"index": 12, "owner": "b", "status": 2, "fields": [1, 2, 3]}],
    "pdist": [{"index": 13, "owner": "c", "status": 3, "fields": [1, 2, 3]}],
    "nlhost": [{"index": 14, "owner": "d", "status": 4, "fields": [1, 2, 3, 4, 5, 6, 7, 8, 9]}],
    "nlmatrix": [{"index": 15, "owner": "e", "status": 1, "fields": [1, 2, 3, 4, 5, 6, 7, 8, 9]}],
    "vlan": [{"index": 16, "owner": "f", "status": 1, "fields": [1, 2]}],
    "prio": [{"index": 17, "owner": "g", "status": 1, "fields": [1, 2]}],
    "dsstats": [{"index": 18, "owner": "h", "status": 1, "fields": [1, 2, 3]}],
    "dspdist": [{"index": 19, "owner": "i", "status": 1, "fields": [1, 2, 3, 4, 5, 6]}],
    "dshost": [{"index": 20, "owner": "j", "status": 1, "fields": [1, 2, 3, 4, 5, 6, 7, 8]}]},
  "host": [{"index": 1, "address": "02:01", "counters": [1, 2, 3, 4, 5, 6, 7], "status": 8,
            "creation_order": 9}],
  "matrix": [{"index": 2, "source": "0a", "dest": "0b:0c", "counters": [1, 2, 3], "status": 4}],
  "pdist": [{"index": 3, "local_index": 4, "tag": 5, "counters": [6, 7], "status": 8}],
  "pdist_totals": [{"index": 3, "counters": [8, "18446744073709551615"]}],
  "nlhost": [{"index": 4, "local_index": 5, "address": "0a:00", "counters": [1, 2, 3, 4, 5],
              "create_time": 6, "time_mark": 7, "status": 8}],
  "nlmatrix": [{"index": 5, "local_index": 6, "source": "0a", "dest": "0b", "counters": [7, 8],
                "create_time": 9, "time_mark": 10, "status": 11}],
  "vlan": [{"index": 6, "id": 100, "counters": [1, 2, 3, 4], "create_time": 5}],
  "prio": [{"index": 7, "id": 0, "counters": [1, 2]}],
  "dsstats": [{"index": 8, "group": 9, "counters": [1, 2, 3, 4]}],
  "dspdist": [{"index": 9, "group": 10, "local_index": 11, "counters": [1, 2], "time_mark": 3}],
  "dshost": [{"index": 10, "group": 11, "local_index": 12, "address": "0a:00:00:01",
              "address_word": 4, "counters": [1, 2, 3, 4], "time_mark": 5}],
  "dsmatrix": [{"index": 11, "group": 12, "local_index": 13, "source": "0a", "dest": "0b",
                "key_word_1": 1, "key_word_2": 2, "key_word_3": 3, "counters": [4, 5],
                "time_mark": 6}]})";

class EveryTable : public ::testing::Test {
 protected:
  TempFile script_{"all.json", kEverything};
  AgentProcess agent_{{"--script", script_.path(), "--port", "0"}};
  Client client_ = agent_.connect();
  void SetUp() override { ASSERT_NE(client_, nullptr); }
};

TEST_F(EveryTable, ControlRowsHaveTheirMembersInPlace) {
  const tapd_control_key first{0, TAPD_REQUEST_NEXT};
  const Reply host(host_control_getnext_1, xdr_tapd_host_control_reply, first, client_);
  EXPECT_EQ(host.status(), RPC_SUCCESS);
  EXPECT_THAT(
      (std::array{host->status, host->hostControlIndex, host->hostControlDataSource,
                  host->hostControlTableSize, static_cast<int>(host->hostControlLastDeleteTime),
                  host->hostControlStatus}),
      ElementsAre(0, 11, 1, 2, 3, 1));
  EXPECT_STREQ(host->hostControlOwner, "a");
  const Reply matrix(matrix_control_getnext_1, xdr_tapd_matrix_control_reply, first, client_);
  EXPECT_THAT((std::array{matrix->status, matrix->matrixControlIndex,
                          matrix->matrixControlDataSource, matrix->matrixControlTableSize,
                          static_cast<int>(matrix->matrixControlLastDeleteTime),
                          matrix->matrixControlStatus}),
              ElementsAre(0, 12, 1, 2, 3, 2));
  EXPECT_STREQ(matrix->matrixControlOwner, "b");
  const Reply pdist(pdist_control_getnext_1, xdr_tapd_pdist_control_reply, first, client_);
  EXPECT_THAT((std::array{pdist->status, pdist->protocolDistControlIndex,
                          pdist->protocolDistControlDataSource,
                          static_cast<int>(pdist->protocolDistControlDroppedFrames),
                          static_cast<int>(pdist->protocolDistControlCreateTime),
                          pdist->protocolDistControlStatus}),
              ElementsAre(0, 13, 1, 2, 3, 3));
  EXPECT_STREQ(pdist->protocolDistControlOwner, "c");
  const auto expect_nl = [&](const auto& nl, int index, const char* owner, int status) {
    EXPECT_THAT(
        (std::array{nl->status, nl->index, nl->dataSource, static_cast<int>(nl->nlDroppedFrames),
                    static_cast<int>(nl->nlInserts), static_cast<int>(nl->nlDeletes),
                    nl->nlMaxDesiredEntries, static_cast<int>(nl->alDroppedFrames),
                    static_cast<int>(nl->alInserts), static_cast<int>(nl->alDeletes),
                    nl->alMaxDesiredEntries, nl->control_status}),
        ElementsAre(0, index, 1, 2, 3, 4, 5, 6, 7, 8, 9, status));
    EXPECT_STREQ(nl->owner, owner);
  };
  expect_nl(Reply(nlhost_control_getnext_1, xdr_tapd_nl_control_reply, first, client_), 14, "d", 4);
  expect_nl(Reply(nlmatrix_control_getnext_1, xdr_tapd_nl_control_reply, first, client_), 15, "e",
            1);
  const auto expect_smon = [&](const auto& smon, int index, const char* owner) {
    EXPECT_THAT((std::array{smon->status, smon->index, static_cast<int>(smon->dataSource),
                            static_cast<int>(smon->createTime), smon->control_status}),
                ElementsAre(0, index, 1, 2, 1));
    EXPECT_STREQ(smon->owner, owner);
  };
  expect_smon(Reply(vlan_control_getnext_1, xdr_tapd_smon_control_reply, first, client_), 16, "f");
  expect_smon(Reply(prio_control_getnext_1, xdr_tapd_smon_control_reply, first, client_), 17, "g");
  const Reply stats(dsstats_control_getnext_1, xdr_tapd_dsstats_control_reply, first, client_);
  EXPECT_THAT(
      (std::array{stats->status, static_cast<int>(stats->index), static_cast<int>(stats->field_3),
                  static_cast<int>(stats->field_4), stats->field_5, stats->control_status}),
      ElementsAre(0, 18, 1, 2, 3, 1));
  EXPECT_STREQ(stats->owner, "h");
  const Reply dspdist(dspdist_control_getnext_1, xdr_tapd_dspdist_control_reply, first, client_);
  EXPECT_THAT((std::array{dspdist->status, dspdist->index, static_cast<int>(dspdist->field_3),
                          dspdist->field_4, static_cast<int>(dspdist->field_5),
                          static_cast<int>(dspdist->field_7), static_cast<int>(dspdist->field_8),
                          static_cast<int>(dspdist->field_9), dspdist->control_status}),
              ElementsAre(0, 19, 1, 2, 3, 4, 5, 6, 1));
  EXPECT_STREQ(dspdist->owner, "i");
  const Reply dshost(dshost_control_getnext_1, xdr_tapd_dshost_control_reply, first, client_);
  EXPECT_THAT((std::array{dshost->status, dshost->index, static_cast<int>(dshost->field_3),
                          static_cast<int>(dshost->field_4), dshost->field_5, dshost->field_6,
                          dshost->field_7, static_cast<int>(dshost->field_8),
                          static_cast<int>(dshost->field_9), static_cast<int>(dshost->field_10),
                          dshost->control_status}),
              ElementsAre(0, 20, 1, 2, 3, 4, 5, 6, 7, 8, 1));
  EXPECT_STREQ(dshost->owner, "j");
  for (const tapd_control_key behind :
       {tapd_control_key{11, TAPD_REQUEST_NEXT}, tapd_control_key{12, TAPD_REQUEST_EXACT},
        tapd_control_key{11, 3}}) {
    const Reply end(host_control_getnext_1, xdr_tapd_host_control_reply, behind, client_);
    EXPECT_EQ(end.status(), RPC_SUCCESS);
    EXPECT_NE(end->status, 0);
  }
}

TEST_F(EveryTable, BulkRowsHaveTheirMembersInPlace) {
  const Reply hosts(host_table_get_1, xdr_tapd_host_rows, {1, {}, 100, 3}, client_);
  ASSERT_EQ(hosts->rows.rows_len, 1U);
  const tapd_host_row& host = hosts->rows.rows_val[0];
  EXPECT_THAT((std::array{host.row_status, host.hostCreationOrder, host.hostIndex}),
              ElementsAre(8, 9, 1));
  EXPECT_EQ(text(host.hostAddress), "02:01");
  EXPECT_THAT(
      (std::array{host.hostInPkts, host.hostOutPkts, host.hostInOctets, host.hostOutOctets,
                  host.hostOutErrors, host.hostOutBroadcastPkts, host.hostOutMulticastPkts}),
      ElementsAre(1, 2, 3, 4, 5, 6, 7));
  const Reply pairs(matrix_table_get_1, xdr_tapd_matrix_rows, {2, {}, {}, 100, 3, 0}, client_);
  ASSERT_EQ(pairs->rows.rows_len, 1U);
  const tapd_matrix_row& pair = pairs->rows.rows_val[0];
  EXPECT_THAT((std::array{pair.row_status, pair.matrixSDIndex}), ElementsAre(4, 2));
  EXPECT_EQ(text(pair.matrixSDSourceAddress) + " " + text(pair.matrixSDDestAddress), "0a 0b:0c");
  EXPECT_THAT((std::array{pair.matrixSDPkts, pair.matrixSDOctets, pair.matrixSDErrors}),
              ElementsAre(1, 2, 3));
  const Reply dist(pdist_table_get_1, xdr_tapd_pdist_rows, {3, 0, 3, 100}, client_);
  ASSERT_EQ(dist->rows.rows_len, 1U);
  const tapd_pdist_row& protocol = dist->rows.rows_val[0];
  EXPECT_THAT((std::array{protocol.row_status, protocol.protocolDistControlIndex,
                          protocol.protocolDirLocalIndex, static_cast<int>(protocol.protocol_tag)}),
              ElementsAre(8, 3, 4, 5));
  EXPECT_THAT((std::array{protocol.protocolDistStatsPkts, protocol.protocolDistStatsOctets}),
              ElementsAre(6, 7));
  const Reply totals(pdist_source_totals_get_1, xdr_tapd_pdist_totals_reply, 3, client_);
  EXPECT_EQ(totals->status, 0);
  EXPECT_EQ(totals->total_pkts, 8U);
  EXPECT_EQ(totals->total_octets, 18446744073709551615U);
  const Reply nlhosts(nlhost_table_get_1, xdr_tapd_nlhost_rows, {4, 0, 0, 0, {}, 3, 0, 100},
                      client_);
  ASSERT_EQ(nlhosts->rows.rows_len, 1U);
  const tapd_nlhost_row& nlhost = nlhosts->rows.rows_val[0];
  EXPECT_THAT((std::array{nlhost.row_status, static_cast<int>(nlhost.nlHostTimeMark),
                          static_cast<int>(nlhost.nlHostCreateTime), nlhost.hlHostControlIndex,
                          nlhost.protocolDirLocalIndex}),
              ElementsAre(8, 7, 6, 4, 5));
  EXPECT_EQ(text(nlhost.nlHostAddress), "0a:00");
  EXPECT_THAT((std::array{nlhost.nlHostInPkts, nlhost.nlHostOutPkts, nlhost.nlHostInOctets,
                          nlhost.nlHostOutOctets, nlhost.nlHostOutMacNonUnicastPkts}),
              ElementsAre(1, 2, 3, 4, 5));
  const Reply talks(nlmatrix_table_get_1, xdr_tapd_nlmatrix_rows,
                    {5, 0, 0, 0, {}, {}, 3, 0, 0, 100}, client_);
  ASSERT_EQ(talks->rows.rows_len, 1U);
  const tapd_nlmatrix_row& talk = talks->rows.rows_val[0];
  EXPECT_THAT((std::array{talk.row_status, static_cast<int>(talk.nlMatrixSDTimeMark),
                          static_cast<int>(talk.nlMatrixSDCreateTime), talk.hlMatrixControlIndex,
                          talk.protocolDirLocalIndex}),
              ElementsAre(11, 10, 9, 5, 6));
  EXPECT_EQ(text(talk.nlMatrixSDSourceAddress) + text(talk.nlMatrixSDDestAddress), "0a0b");
  EXPECT_THAT((std::array{talk.nlMatrixSDPkts, talk.nlMatrixSDOctets}), ElementsAre(7, 8));
}

TEST_F(EveryTable, SingleRowsHaveTheirMembersInPlace) {
  const Reply vlan(vlan_table_get_1, xdr_tapd_vlan_row_reply, {6, 0, 2}, client_);
  EXPECT_THAT((std::array{vlan->status, vlan->smonVlanIdStatsId,
                          static_cast<int>(vlan->smonVlanIdStatsCreateTime), vlan->control_index}),
              ElementsAre(0, 100, 5, 6));
  EXPECT_THAT((std::array{vlan->smonVlanIdStatsTotalPkts, vlan->smonVlanIdStatsTotalOctets,
                          vlan->smonVlanIdStatsNUcastPkts, vlan->smonVlanIdStatsNUcastOctets}),
              ElementsAre(1, 2, 3, 4));
  const Reply prio(prio_table_get_1, xdr_tapd_prio_row_reply, {7, -1, 2}, client_);
  EXPECT_THAT((std::array{prio->status, prio->smonPrioStatsId, prio->control_index}),
              ElementsAre(0, 0, 7));
  EXPECT_THAT((std::array{prio->smonPrioStatsPkts, prio->smonPrioStatsOctets}), ElementsAre(1, 2));
  const Reply no_group(dsstats_table_get_1, xdr_tapd_dsstats_row_reply, {8, 0, 1}, client_);
  EXPECT_EQ(no_group.status(), RPC_SUCCESS);
  EXPECT_NE(no_group->status, 0);
  for (const tapd_indexed_key key : {tapd_indexed_key{8, 0, 2}, tapd_indexed_key{8, 9, 1}}) {
    const Reply group(dsstats_table_get_1, xdr_tapd_dsstats_row_reply, key, client_);
    EXPECT_EQ(group->status, 0);
    EXPECT_EQ(group->dsmonAggGroupIndex, 9U);
    EXPECT_EQ(group->dsmonStatsControlIndex, 8U);
    EXPECT_THAT((std::array{group->in_pkts, group->in_octets, group->out_pkts, group->out_octets}),
                ElementsAre(1, 2, 3, 4));
  }
  const Reply dist(dspdist_table_get_1, xdr_tapd_dspdist_row_reply, {9, 0, 0, 0, 2}, client_);
  EXPECT_THAT((std::array{static_cast<u_int>(dist->status), dist->dsmonPdistCtlIndex,
                          dist->dsmonPdistTimeMark, dist->dsmonAggGroupIndex,
                          static_cast<u_int>(dist->protocolDirLocalIndex)}),
              ElementsAre(0, 9, 3, 10, 11));
  EXPECT_THAT((std::array{dist->dsmonPdistStatsPkts, dist->dsmonPdistStatsOctets}),
              ElementsAre(1, 2));
  const Reply host(dshost_table_get_1, xdr_tapd_dshost_row_reply, {10, 0, 0, 0, {}, 0, 2}, client_);
  EXPECT_THAT(
      (std::array{host->status, host->dsmonHostCtlIndex, static_cast<int>(host->dsmonHostTimeMark),
                  static_cast<int>(host->dsmonAggGroupIndex), host->protocolDirLocalIndex,
                  host->address_word}),
      ElementsAre(0, 10, 5, 11, 12, 4));
  EXPECT_EQ(text(host->dsmonHostAddress),
            "0a:00:00:01:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00");
  EXPECT_THAT((std::array{host->in_pkts, host->in_octets, host->out_pkts, host->out_octets}),
              ElementsAre(1, 2, 3, 4));
  const Reply talk(dsmatrix_table_get_1, xdr_tapd_dsmatrix_row_reply,
                   {11, 0, 0, 0, {}, {}, 0, 0, 0, 2}, client_);
  EXPECT_THAT((std::array{talk->status, talk->dsmonMatrixCtlIndex,
                          static_cast<int>(talk->dsmonMatrixTimeMark),
                          static_cast<int>(talk->dsmonAggGroupIndex), talk->protocolDirLocalIndex,
                          talk->key_word_1, talk->key_word_2, talk->key_word_3}),
              ElementsAre(0, 11, 6, 12, 13, 1, 2, 3));
  EXPECT_THAT(text(talk->source_address), StartsWith("0a:00"));
  EXPECT_THAT(text(talk->dest_address), StartsWith("0b:00"));
  EXPECT_EQ(talk->pkts, 4U);
  EXPECT_EQ(talk->octets, 5U);
  // The row that came is the key of the next request: all of it must travel.
  tapd_dsmatrix_key behind{11, 0, 12, 13, {}, {}, 1, 2, 3, 2};
  std::copy(std::begin(talk->source_address), std::end(talk->source_address),
            behind.source_address);
  std::copy(std::begin(talk->dest_address), std::end(talk->dest_address), behind.dest_address);
  const Reply end(dsmatrix_table_get_1, xdr_tapd_dsmatrix_row_reply, behind, client_);
  EXPECT_NE(end->status, 0);
  const auto system_info = [](int* /*none*/, tapd_system_info* result, CLIENT* client) {
    return agent_system_info_1(nullptr, result, client);
  };
  const Reply<tapd_system_info> info(+system_info, xdr_tapd_system_info, 0, client_);
  EXPECT_STREQ(info->descr, "d");
  EXPECT_STREQ(info->text_2, "t2");
  EXPECT_STREQ(info->text_5, "t5");
  EXPECT_EQ(info->up_time, 77U);
  EXPECT_EQ(info->services, 72);
}

}  // namespace
}  // namespace minitapd
