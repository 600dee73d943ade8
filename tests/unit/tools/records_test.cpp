// Collection files, from their bytes to what people see.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>

#include "daemon/base/collection_types.h"
#include "history/history.h"
#include "support/temporary_directory.h"
#include "views/view.h"

namespace tally {
namespace {

using Bytes = std::vector<unsigned char>;

// file_of judges the bytes of one file.
OpenFile file_of(const FileHeader& header, const std::string& rows,
                 FileKind kind = FileKind::delta) {
  const std::string bytes = bytes_of(header) + rows;
  OpenFile file;
  file.bytes = FileBytes(Bytes(bytes.begin(), bytes.end()));
  judge(file, header.type, kind);
  return file;
}

OpenFiles only(std::uint32_t type, const std::string& rows) {
  return {{type, 1}, FileKind::delta, file_of({60, 0, 1'700'000'000, type}, rows), {}, {}, {}};
}

// The names that round robin databases take are short: no two values of a type may share one.
TEST(RecordColumns, HaveAnRrdNameEach) {
  for (std::uint32_t type = 0; type < kTypeSlots; ++type) {
    const RecordLayout* layout = record_layout(type);
    std::set<std::string> names;
    if (layout == nullptr) continue;
    for (const Column& column : layout->columns.subspan(layout->key_columns)) {
      EXPECT_TRUE(names.insert(rrd_source_name(column)).second) << column.name;
    }
  }
}

TEST(CellText, Numbers) {
  const struct {
    double value;
    const char *exact, *rate, *percent;
  } cases[] = {
      {0, "0", "0", "0 %"},
      {1.0 / 3, "0.3333333333333333", "0.333", "0.33 %"},
      {0.00012, "0.00012", "<0.001", "<0.01 %"},
      {0.9996, "0.9996", "1.00", "1.00 %"},
      {9.996, "9.996", "10.0", "10.0 %"},
      {99.96, "99.96", "100", "100 %"},
      {4e5, "400000", "400k", "400000 %"},
      {999.5, "999.5", "1.00k", "1000 %"},
      {-1234567, "-1234567", "-1.23M", "-1234567 %"},
      {18446744073709551616.0, "18446744073709551616", "18.4E", "18446744073709551616 %"},
      {1e30, "1e+30", "1e+30", "1000000000000000019884624838656 %"},
      {std::nan(""), "nan", "nan", "nan %"},
  };
  for (const auto& [value, exact, rate, percent] : cases) {
    EXPECT_EQ(number_text(value, NumberStyle::exact), exact);
    EXPECT_EQ(rate_text(value), rate);
    EXPECT_EQ(percent_text(value), percent);
  }
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

// pdist_rows holds local indexes with their packet rates, and octets ten times as many.
std::string pdist_rows(const std::vector<std::pair<std::uint32_t, double>>& rows) {
  std::string records;
  for (const auto& [index, packets] : rows) {
    records += bytes_of(1U) + bytes_of(index) + bytes_of(packets) + bytes_of(packets * 10);
  }
  return records;
}

// local_indexes returns the second word of each row.
std::vector<std::uint32_t> local_indexes(const std::vector<Row>& rows) {
  std::vector<std::uint32_t> indexes;
  for (const Row& row : rows) indexes.push_back(number_at(row.record + 4));
  return indexes;
}

TEST(RowSelection, ValuesFallKeysRiseTotalsComeLast) {
  const OpenFiles files = only(
      kPdist, pdist_rows({{3, 1}, {9, std::nan("")}, {kTotalIndex, 99}, {1, 5}, {2, 5}, {5, -1}}));
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
      {{{}, false, 0}, {"protocolDistStatsPkts>=1", "protocolDistStatsOctets<=0.05k"}, {3, 1, 2}},
      {{{}, false, 0}, {"protocolDirLocalIndex=total"}, {kTotalIndex}},
  };
  for (const auto& each : cases) {
    const LoadedView loaded = load_view(files, RowFilter(layout, each.where), each.order, nullptr);
    EXPECT_EQ(local_indexes(loaded.view.rows), each.rows);
  }
  for (const char* bad : {"frob=1", "protocol_tag", "protocolDistStatsPkts<x", "protocol_tag!1",
                          "protocol_tag>1kk"}) {
    EXPECT_THROW(RowFilter(layout, {bad}), UsageError) << bad;
  }
}

std::string vlan(std::uint32_t id, double packets) {
  return bytes_of(id) + bytes_of(packets) + std::string(24, '\0');
}

// Names come from whatever lies there, and change while we run.
TEST(Names, ComeFromFilesThatMayBeAnything) {
  const TemporaryDirectory folder;
  const auto put = [&](const char* name, const std::string& text) {
    std::ofstream(folder.path() + '/' + name) << text;
  };
  const auto bytes = [](const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
  };
  Names names(folder.path());
  const std::string row = bytes_of(7U) + bytes_of(130U) + std::string(16, '\0');
  const std::string pair = std::string("\0\x1b\x21\1\2\3\2\0\0\0\0\7", 12) + std::string(24, '\0');
  const std::string id = vlan(20, 1);
  const auto protocol = [&] {
    names.refresh();
    return names.name_of(*record_layout(kPdist), bytes(row), 1);
  };
  const auto labels = [&] {
    const RecordLayout& matrix = *record_layout(kMatrix);
    names.refresh();
    return names.label_of(matrix, bytes(pair), 0, false) + "|" +
           names.label_of(matrix, bytes(pair), 1, false) + "|" +
           names.label_of(*record_layout(kVlan), bytes(id), 0, false) + "|" +
           names.label_of(*record_layout(kPdist), bytes(row), 1, true);
  };
  EXPECT_EQ(protocol(), "");
  put("oui.csv", "");  // in place of the machine's own
  EXPECT_EQ(labels(), "00:1b:21:01:02:03|02:00:00:00:00:07|20|130");
  put("protocols",
      "# comment\nbad\nx 130x\n a.b.dns\t130 # 131\nlater 130 l\n" + std::string(65, 'n') + " 7\n");
  put("vlans", "voice 20");
  put("ethers", "zz 1\n2:0:0:0:0:7 prin\033ter");
  put("hosts", "2:0:0:0:0:7 x\n0.0.0.0 blocked\n");
  put("oui.csv", "MA-L,001B21,\"Intel Corporation of America, Inc.\",x\nMA-L,0200000,y\nMA-L,02");
  EXPECT_EQ(protocol(), "a.b.dns");
  EXPECT_EQ(labels(), "Intel 01:02:03|prin\\x1bter|20 voice|dns");
  const std::string total = bytes_of(132U) + bytes_of(kTotalIndex) + std::string(16, '\0');
  EXPECT_EQ(names.label_of(*record_layout(kPdist), bytes(total), 1, true), "total");
  const LoadedView loaded = load_view(
      only(kPdist, row), RowFilter(*record_layout(kPdist), {"protocolDirLocalIndex=*.DNS"}, &names),
      {}, nullptr);
  EXPECT_EQ(loaded.view.accepted, 1U);
  put("protocols", "huge 130\n" + std::string(5 << 20, ' '));
  EXPECT_EQ(protocol(), "");
  put("protocols", "new 130");
  EXPECT_EQ(protocol(), "new");
  std::filesystem::remove(folder.path() + "/protocols");
  EXPECT_EQ(protocol(), "");
}

// codes_of judges beside what other delta files cover, by default with an interval of 10 seconds.
std::vector<std::string> codes_of(const OpenFiles& files,
                                  const std::vector<Covered>& others = {{1000, 1010}}) {
  Annotator annotator(files, {60, 0, others});
  std::vector<std::string> codes;
  Records records = files.main.records();
  while (const unsigned char* record = records.next()) {
    codes.push_back(row_note_codes(annotator.next(record), " "));
  }
  for (const FileNote& note : annotator.finish()) codes.emplace_back(note.code);
  return codes;
}

std::string interface(std::uint32_t index, std::string name, double speed, double octets) {
  const auto length = static_cast<std::uint32_t>(name.size());
  name.resize(16);
  return bytes_of(index) + bytes_of(length) + name + bytes_of(speed) + bytes_of(0.0) +
         bytes_of(octets) + std::string(72, '\0');
}

TEST(Annotate, TellsWhatTheSamplesShow) {
  const double top = 18446744073709549568.0;  // the largest count
  const std::string rows = vlan(1, 2) + vlan(2, 7) + vlan(4, 1) + vlan(5, 5);
  std::string many;
  for (std::uint32_t id = 1; id <= 10; ++id) many += vlan(id, 60);
  const struct {
    const char* what;
    FileHeader header;  // of the last sample; the one before is of 1000
    std::string delta;
    std::string last;
    std::string prev;
    std::vector<std::string> codes;
    std::int32_t delta_late = 0;
  } cases[] = {
      {"a rate, a reset, a new row, a wrap; one row is left out, one is gone",
       {0, 600, 1060, kVlan},
       rows,
       vlan(1, 130) + vlan(2, 7) + vlan(3, 9) + vlan(4, 60) + vlan(5, 2),
       vlan(0, 1) + vlan(1, 10) + vlan(2, 90) + vlan(3, 9) + vlan(5, top),
       {"", "reset", "new", "", "last-cut-short", "new", "reset", "unchanged"}},
      {"the delta file is cut short: 3 stands still, 4 fell to 0, 5 is new and 0",
       {0, 600, 1060, kVlan},
       vlan(1, 2),
       vlan(1, 130) + vlan(3, 9) + vlan(4, 0) + vlan(5, 0) + vlan(6, 10),
       vlan(1, 10) + vlan(3, 9) + vlan(4, 9),
       {"", "cut-short", "unchanged"}},
      {"none of it is missing",
       {0, 600, 1060, kVlan},
       vlan(1, 2),
       vlan(1, 130) + vlan(3, 9) + vlan(4, 0) + vlan(5, 0),
       vlan(1, 10) + vlan(3, 9) + vlan(4, 9),
       {"", "unchanged"}},
      {"the last sample is cut short",
       {0, 600, 1060, kVlan},
       vlan(1, 2),
       vlan(1, 130),
       vlan(1, 10) + vlan(2, 5),
       {"", "last-cut-short"}},
      {"the first sample was cut short",
       {0, 600, 1060, kVlan},
       many,
       many,
       "",
       {"new", "new", "new", "new", "new", "new", "new", "new", "new", "new", "prev-cut-short",
        "new"}},
      {"discovered in another order, and two went down",
       {0, 0, 1060, kIfStats},
       interface(1, "a", 0, 10),
       interface(1, "a", 0, 600),
       interface(2, "b", 0, 5) + interface(3, "c", 0, 5) + interface(1, "a", 0, 600),
       {"new", "new"}},
      {"a restart; late",
       {0, 3, 1067, kVlan},
       "",
       vlan(1, 1),
       vlan(1, 1),
       {"long-interval", "agent-restarted", "unchanged"}},
      {"in time, and no up-time", {0, 0, 1066, kVlan}, "", "", "", {"restart-unknown"}},
      {"the clock went back", {0, 600, 900, kVlan}, "", "", "", {"clock-set-back"}},
      {"within a second", {0, 600, 1000, kVlan}, "", "", "", {"zero-interval"}},
      {"no samples", {0, 600, 1060, kVlan}, vlan(1, 2), "x", "", {"", "not-compared"}},
      {"another poll's", {0, 600, 1060, kVlan}, vlan(1, 2), "", "", {"", "not-compared"}, 1},
      {"rows of another poll",
       {0, 600, 1060, kVlan},
       rows,
       vlan(1, 130) + vlan(9, 9),
       vlan(1, 10),
       {"", "", "", "", "not-in-sample", "unchanged"}},
      {"interfaces that got other names and numbers",
       {0, 0, 1060, kIfStats},
       interface(1, "a", 8, 10) + interface(2, "b", 100, 1000) + interface(3, "d", 0, 5) +
           interface(4, "e", 100, 15e7) + interface(5, "f", 0, -0.1),
       interface(1, "a", 1000, 600) + interface(2, "b", 1000, 60000) + interface(3, "d", 1000, 5) +
           interface(4, "e", 4294967295.0, 9e9) + interface(5, "f", 0, 6),
       interface(1, "a", 1000, 0) + interface(2, "c", 1000, 0) + interface(3, "b", 1000, 10) +
           interface(4, "e", 1000, 0) + interface(5, "f", 0, 12),
       {"", "above-speed renamed moved", "reset renamed", "speed-unknown", "negative", "reset",
        "negative", "above-speed", "renamed", "moved", "speed-unknown"}},
  };
  for (const auto& each : cases) {
    const std::uint32_t type = each.header.type;
    const std::int32_t end = each.header.sample_time;
    OpenFiles files = only(type, "");
    files.main = file_of({end - 1000, 0, end + each.delta_late, type}, each.delta);
    match_samples(files, file_of(each.header, each.last, FileKind::last),
                  file_of({0, 500, 1000, type}, each.prev, FileKind::prev));
    EXPECT_EQ(codes_of(files), each.codes) << each.what;
  }
  // Where all intervals are longer, the plan is another; but not that of an hour.
  OpenFiles files = only(kVlan, "");
  for (const auto& [interval, codes] :
       std::initializer_list<std::pair<int, std::size_t>>{{67, 0}, {3600, 1}}) {
    files.main = file_of({interval, 0, 1000 + interval, kVlan}, "");
    EXPECT_EQ(codes_of(files, {{1000, 1000 + interval}, {900, 910}}).size(), codes) << interval;
  }
  EXPECT_EQ(
      codes_of(only(kEtherStats, std::string(28, '\0') + bytes_of(100.0) + std::string(136, '\0'))),
      (std::vector<std::string>{"above-speed", "above-speed"}));
}

}  // namespace
}  // namespace tally
