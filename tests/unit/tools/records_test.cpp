// Collection files, from their bytes to what people see.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <set>

#include "daemon/collection_types.h"
#include "history/history.h"
#include "metrics/exposition.h"
#include "metrics/http_request.h"
#include "support/temporary_directory.h"
#include "views/view.h"

namespace tally {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes delta_file(std::uint32_t type, const std::string& records) {
  const std::string bytes = bytes_of(FileHeader{60, 0, 1'700'000'000, type}) + records;
  return {bytes.begin(), bytes.end()};
}

OpenFile open_bytes(Bytes bytes, std::uint32_t type, FileKind kind = FileKind::delta) {
  OpenFile file;
  file.bytes = FileBytes(std::move(bytes));
  judge(file, type, kind);
  return file;
}

// The documented record: its size, and where a key, the first rate and the rate that ranks lie.
struct Layout {
  std::uint32_t type;
  std::size_t size;
  const char* key;
  std::size_t key_offset;
  const char* first;
  std::size_t first_offset;
  const char* rank;
  std::size_t rank_offset;
};

constexpr Layout kLayouts[] = {
    {kHost, 62, "hostAddress", 0, "hostInPkts", 6, "hostOutOctets", 30},
    {kMatrix, 36, "matrixSDDestAddress", 6, "matrixSDPkts", 12, "matrixSDOctets", 20},
    {kPdist, 24, "protocolDirLocalIndex", 4, "protocolDistStatsPkts", 8, "protocolDistStatsOctets",
     16},
    {kNlHost, 64, "nlHostAddress", 8, "nlHostInPkts", 24, "nlHostOutOctets", 48},
    {kNlMatrix, 60, "nlMatrixSDDestAddress", 28, "nlMatrixSDPkts", 44, "nlMatrixSDOctets", 52},
    {kVlan, 36, "smonVlanIdStatsId", 0, "smonVlanIdStatsTotalPkts", 4, "smonVlanIdStatsTotalOctets",
     12},
    {kPrio, 20, "smonPrioStatsId", 0, "smonPrioStatsPkts", 4, "smonPrioStatsOctets", 12},
    {kDsStats, 36, "dsmonAggGroupIndex", 0, "dsmonStatsInPkts", 4, "dsmonStatsOutOctets", 28},
    {kDsPdist, 24, "protocolDirLocalIndex", 4, "dsmonPdistStatsPkts", 8, "dsmonPdistStatsOctets",
     16},
    {kDsHost, 60, "dsmonHostAddress", 12, "dsmonHostInPkts", 28, "dsmonHostOutOctets", 52},
    {kDsMatrix, 68, "key_word_1", 48, "dsmonMatrixSDPkts", 52, "dsmonMatrixSDOctets", 60},
    {kEtherStats, 172, "ifName", 12, "utilisationPercent", 28, "etherStatsOctets", 44},
    {kSupVlan, 36, "smonVlanIdStatsId", 0, "smonVlanIdStatsTotalPkts", 4,
     "smonVlanIdStatsTotalOctets", 12},
    {kIfStats, 120, "ifName", 8, "inUtilisationPercent", 24, "ifOutOctets", 48},
};

TEST(RecordColumns, LieWhereTheFilesHaveThem) {
  for (const Layout& documented : kLayouts) {
    SCOPED_TRACE(type_stem(documented.type));
    const RecordLayout& layout = *record_layout(documented.type);
    EXPECT_EQ(layout.size, documented.size);
    const auto offset_of = [&](const char* name) {
      return layout.offsets[find_column(layout, name).value()];
    };
    EXPECT_EQ(offset_of(documented.key), documented.key_offset);
    EXPECT_EQ(offset_of(documented.first), documented.first_offset);
    EXPECT_EQ(offset_of(documented.rank), documented.rank_offset);
    EXPECT_EQ(layout.rank, find_column(layout, documented.rank));
    EXPECT_EQ(layout.key_size, documented.type == kEtherStats || documented.type == kIfStats
                                   ? documented.key_offset + 16
                                   : documented.first_offset);
    std::set<std::string> sources;
    for (const Column& column : layout.columns.subspan(layout.key_columns)) {
      EXPECT_TRUE(sources.insert(rrd_source_name(column)).second) << rrd_source_name(column);
    }
  }
}

TEST(CellText, FindsTheLengthOfAnAddress) {
  const std::string record = bytes_of(std::uint32_t{7}) + bytes_of(std::uint32_t{4}) +
                             std::string{127, 0, 0, 1} + std::string(52, '\0');
  const auto* bytes = reinterpret_cast<const unsigned char*>(record.data());
  EXPECT_EQ(cell_text(*record_layout(kNlHost), bytes, 2, NumberStyle::exact), "127.0.0.1");
  EXPECT_EQ(row_file_name(*record_layout(kNlHost), bytes), "7_127.0.0.1");
}

TEST(CellText, Numbers) {
  EXPECT_EQ(number_text(1.0 / 3, NumberStyle::exact), "0.3333333333333333");
  const std::pair<double, const char*> cases[] = {
      {0, "0"},         {1.0 / 3, "0.333"},    {0.9996, "1.00"},
      {9.996, "10.0"},  {99.96, "100"},        {999.4, "999"},
      {999.5, "1.00k"}, {-1234567, "-1.23M"},  {18446744073709551616.0, "18.4E"},
      {1e30, "1e+30"},  {std::nan(""), "nan"},
  };
  for (const auto& [value, si] : cases) EXPECT_EQ(number_text(value, NumberStyle::si), si);
}

// No two keys look alike, and no name drives the terminal.
TEST(CellText, AddressesAndNames) {
  const auto field = [](Bytes octets) {
    octets.resize(16);
    return octets;
  };
  EXPECT_EQ(address_text({field({10, 0, 255}), 4}), "10.0.255.0");
  EXPECT_EQ(address_text({field({0x20, 1, 0xd, 0xb8}), 16}), "2001:db8::");
  EXPECT_EQ(address_text({field({0, 0x1b, 2, 3, 4, 0xff}), 6}), "001b020304ff");
  EXPECT_EQ(address_text({field({}), 0}), "-");
  EXPECT_EQ(address_text({field({10, 0, 0, 1}), 0}), "0a000001000000000000000000000000");
  EXPECT_EQ(address_text({field({10, 0, 0, 1, 9}), 4}), "0a000001090000000000000000000000");
  EXPECT_EQ(address_text({field({0x20, 1}), 17}), "20010000000000000000000000000000");
  EXPECT_EQ(name_text({field({0x1b, '3', '\\', 0x7f, 0xc3, 'x'}), 5}), "\\x1b3\\x5c\\x7f\\xc3");
  EXPECT_EQ(name_text({Bytes(16, 'n'), 4000000000}), "nnnnnnnnnnnnnnnn");
  EXPECT_EQ(mac_text(Bytes{0, 0x1B, 0xff, 3, 0xA, 1}), "00:1b:ff:03:0a:01");
}

// pdist_file holds local indexes with their packet rates, and octets ten times as many.
Bytes pdist_file(const std::vector<std::pair<std::uint32_t, double>>& rows) {
  std::string records;
  for (const auto& [index, packets] : rows) {
    records += bytes_of(std::uint32_t{1}) + bytes_of(index);
    records += bytes_of(packets) + bytes_of(packets * 10);
  }
  return delta_file(kPdist, records);
}

OpenFiles only(Bytes bytes, std::uint32_t type) {
  OpenFiles files;
  files.collection = {type, 1};
  files.kind = FileKind::delta;
  files.main = open_bytes(std::move(bytes), type);
  return files;
}

// local_indexes returns the second word of each row.
std::vector<std::uint32_t> local_indexes(const std::vector<Row>& rows) {
  std::vector<std::uint32_t> indexes;
  for (const Row& row : rows) indexes.push_back(number_at(row.record + 4));
  return indexes;
}

TEST(RowSelection, ValuesFallKeysRiseTotalsComeLast) {
  const OpenFiles files = only(
      pdist_file({{3, 1}, {9, std::nan("")}, {kTotalIndex, 99}, {1, 5}, {2, 5}, {5, -1}}), kPdist);
  const RecordLayout& layout = *record_layout(kPdist);
  const struct {
    RowOrder order;
    std::vector<std::string> where;
    std::vector<std::uint32_t> rows;
  } cases[] = {
      {{{}, false, 0}, {}, {3, 9, 1, 2, 5, kTotalIndex}},
      {{1, false, 99}, {}, {1, 2, 3, 5, 9, kTotalIndex}},
      {{1, true, 2}, {}, {9, 5, kTotalIndex}},
      {{2, false, 0}, {}, {1, 2, 3, 5, 9, kTotalIndex}},
      {{2, false, 2}, {}, {1, 2, kTotalIndex}},
      {{2, true, 2}, {}, {5, 3, kTotalIndex}},
      {{{}, false, 0}, {"protocolDirLocalIndex=[135]", "PROTOCOLDISTSTATSPKTS>0"}, {3, 1}},
      {{{}, false, 0}, {"protocolDistStatsPkts<5", "protocolDirLocalIndex!=3"}, {5}},
      {{{}, false, 0}, {"protocolDirLocalIndex=total"}, {kTotalIndex}},
  };
  for (const auto& each : cases) {
    const LoadedView loaded = load_view(files, RowFilter(layout, each.where), each.order, nullptr);
    EXPECT_EQ(local_indexes(loaded.view.rows), each.rows);
  }
  for (const char* bad : {"frob=1", "protocol_tag", "protocolDistStatsPkts<x", "protocol_tag!1"}) {
    EXPECT_THROW(RowFilter(layout, {bad}), UsageError) << bad;
  }
}

TEST(TableText, AlignsCutsAndLabels) {
  setenv("TZ", "NST3:30", 1);
  tzset();
  const OpenFiles files = only(pdist_file({{3, 1.25}, {70000, 1e9}, {kTotalIndex, 2}}), kPdist);
  const RecordLayout& layout = *record_layout(kPdist);
  const auto text = [&](std::size_t top, std::size_t width) {
    const LoadedView loaded = load_view(files, RowFilter(layout, {}), {2, false, top}, nullptr);
    return table_text(loaded.view, {NumberStyle::si, false, width});
  };
  EXPECT_EQ(
      text(0, 0),
      R"(pdist 1  interval 60 s  sampled 2023-11-14T18:43:20-03:30  rows 3  by protocolDistStatsPkts
protocol_tag  protocolDirLocalIndex  protocolDistStatsPkts  protocolDistStatsOctets
           1                  70000                  1.00G                    10.0G
           1                      3                   1.25                     12.5
           1                  total                      2                       20
)");
  EXPECT_EQ(text(1, 14), "pdist 1  inter\nprotocol_tag\n           1\n           1\n");
}

// Three rows of VLANs or interfaces, each with a counter before, after and what the daemon made of
// the two; what a reader is to be told of each.
std::string vlan(std::uint32_t id, double packets) {
  return bytes_of(id) + bytes_of(packets) + std::string(24, '\0');
}

OpenFiles with_samples(std::uint32_t type, const std::string& delta, const std::string& last,
                       const std::string& prev, FileHeader newer, FileHeader older) {
  const auto open = [&](FileHeader header, const std::string& rows, FileKind kind) {
    header.type = type;
    const std::string bytes = bytes_of(header) + rows;
    return open_bytes(Bytes(bytes.begin(), bytes.end()), type, kind);
  };
  OpenFiles files;
  files.collection = {type, 1};
  files.kind = FileKind::delta;
  const std::int32_t interval = newer.sample_time - older.sample_time;
  files.main = open({interval, 0, newer.sample_time, type}, delta, FileKind::delta);
  match_samples(files, open(newer, last, FileKind::last), open(older, prev, FileKind::prev));
  return files;
}

std::vector<std::string> codes_of(const OpenFiles& files, const AnnotateOptions& options) {
  Annotator annotator(files, options);
  std::vector<std::string> codes;
  Records records = files.main.records();
  while (const unsigned char* record = records.next()) {
    codes.push_back(row_note_codes(annotator.next(record), " "));
  }
  for (const FileNote& note : annotator.finish()) codes.emplace_back(note.code);
  return codes;
}

TEST(Annotate, TellsWhatTheSamplesShow) {
  const FileHeader before{0, 500, 1000, 0};
  const FileHeader after{0, 600, 1060, 0};
  const double top = 18446744073709549568.0;  // the largest count
  const std::string rows = vlan(1, 2) + vlan(2, 7) + vlan(4, 1) + vlan(5, 5);
  const struct {
    const char* what;
    OpenFiles files;
    AnnotateOptions options;
    std::vector<std::string> codes;
  } cases[] = {
      {"a rate, a reset, a new row, a wrap; one row is left out, one is gone",
       with_samples(kVlan, rows, vlan(1, 130) + vlan(2, 7) + vlan(3, 9) + vlan(4, 60) + vlan(5, 2),
                    vlan(0, 1) + vlan(1, 10) + vlan(2, 90) + vlan(3, 9) + vlan(5, top), after,
                    before),
       {60, 0},
       {"", "reset", "new", "", "new", "reset", "unchanged"}},
      {"a restart; late",
       with_samples(kVlan, "", vlan(1, 1), vlan(1, 1), {0, 3, 1067, 0}, before),
       {60, 0},
       {"long-interval", "agent-restarted", "unchanged"}},
      {"in time, and no up-time",
       with_samples(kVlan, "", "", "", {0, 0, 1066, 0}, before),
       {60, 0},
       {"restart-unknown"}},
      {"the clock went back",
       with_samples(kVlan, "", "", "", {0, 600, 900, 0}, before),
       {},
       {"clock-set-back"}},
      {"within a second",
       with_samples(kVlan, "", "", "", {0, 600, 1000, 0}, before),
       {},
       {"zero-interval"}},
      {"another type's samples",
       with_samples(kVlan, rows, "x", "", after, before),
       {},
       {"", "", "", "", "not-compared"}},
      {"rows of another poll",
       with_samples(kVlan, rows, vlan(1, 130) + vlan(9, 9), vlan(1, 10), after, before),
       {},
       {"", "", "", "", "unchanged", "not-in-sample"}},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(codes_of(each.files, each.options), each.codes) << each.what;
  }
  OpenFiles other = with_samples(kVlan, rows, rows, rows, after, before);
  other.main.header.sample_time += 1;
  match_samples(other, {}, {});
  EXPECT_NE(other.unmatched, "");
}

std::string interface(std::uint32_t index, std::string name, double speed, double octets) {
  const auto length = static_cast<std::uint32_t>(name.size());
  name.resize(16);
  return bytes_of(index) + bytes_of(length) + name + bytes_of(speed) + bytes_of(0.0) +
         bytes_of(octets) + std::string(72, '\0');
}

TEST(Annotate, FollowsInterfaces) {
  const std::string last = interface(1, "a", 1000, 600) + interface(2, "b", 1000, 60000) +
                           interface(3, "d", 1000, 5) + interface(4, "e", 4294967295.0, 9e9) +
                           interface(5, "f", 0, 6);
  const std::string prev = interface(1, "a", 1000, 0) + interface(2, "c", 1000, 0) +
                           interface(3, "b", 1000, 10) + interface(4, "e", 1000, 0) +
                           interface(5, "f", 0, 12);
  const std::string delta = interface(1, "a", 8, 10) + interface(2, "b", 100, 1000) +
                            interface(3, "d", 0, 5) + interface(4, "e", 100, 15e7) +
                            interface(5, "f", 0, -0.1);
  const OpenFiles files =
      with_samples(kIfStats, delta, last, prev, {0, 0, 1060, 0}, {0, 0, 1000, 0});
  EXPECT_EQ(codes_of(files, {}),
            (std::vector<std::string>{"", "above-speed renamed moved", "reset renamed",
                                      "speed-unknown", "negative", "reset", "negative",
                                      "above-speed", "renamed", "moved", "speed-unknown"}));
  EXPECT_EQ(codes_of(only(delta_file(kEtherStats, std::string(28, '\0') + bytes_of(100.0) +
                                                      std::string(136, '\0')),
                          kEtherStats),
                     {}),
            (std::vector<std::string>{"above-speed", "above-speed"}));
}

TEST(HttpRequest, TakesWhatScrapersSendAndNothingElse) {
  const std::string huge(kLongestRequest, 'a');
  const struct {
    std::string bytes;
    RequestState state;
    const char* path;
  } cases[] = {
      {"", RequestState::incomplete, ""},
      {"GET /metrics HTTP/1.1\r\nHost: a\r\n", RequestState::incomplete, ""},
      {"GET /metrics HTTP/1.1\r\nHost: a\r\n\r\n", RequestState::complete, "/metrics"},
      {"HEAD /metrics?a=b HTTP/1.0\n\n", RequestState::complete, "/metrics"},
      {"get / HTTP/1.1\r\n\r\n", RequestState::malformed, ""},
      {"\x16\x03\x01", RequestState::malformed, ""},
      {"GET / HTTP/2\r\n\r\n", RequestState::malformed, ""},
      {"GET  HTTP/1.1\r\n\r\n", RequestState::malformed, ""},
      {"GET /a b HTTP/1.1\r\n\r\n", RequestState::malformed, ""},
      {"GET http://a/ HTTP/1.1\r\n\r\n", RequestState::malformed, ""},
      {"GET /\n\nGET / HTTP/1.1\r\n\r\n", RequestState::malformed, ""},
      {"GET /" + huge, RequestState::too_long, ""},
      {"GET / HTTP/1.1\r\nA: " + huge + "\r\n\r\n", RequestState::too_long, ""},
  };
  for (const auto& each : cases) {
    const HttpRequest request = parse_request(each.bytes);
    EXPECT_EQ(request.state, each.state) << each.bytes.substr(0, 40);
    EXPECT_EQ(request.path, each.path);
  }
  Output text(Output::kCollect);
  Exposition page(text);
  page.family("a_total", "counter", "Text");
  page.sample(label("b", "c\\d\"e\nf"), std::numeric_limits<double>::infinity());
  EXPECT_EQ(text.text(),
            "# HELP a_total Text\n# TYPE a_total counter\n"
            "a_total{b=\"c\\\\d\\\"e\\nf\"} +Inf\n");
}

}  // namespace
}  // namespace tally
