// Delta files, from their bytes to the table that people see.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "daemon/collection_types.h"
#include "support/temporary_directory.h"
#include "table_text.h"

namespace tally {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes delta_file(std::uint32_t type, const std::string& records) {
  const std::string bytes = bytes_of(FileHeader{60, 0, 1'700'000'000, type}) + records;
  return {bytes.begin(), bytes.end()};
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
      return column_offset(layout, find_column(layout, name).value());
    };
    EXPECT_EQ(offset_of(documented.key), documented.key_offset);
    EXPECT_EQ(offset_of(documented.first), documented.first_offset);
    EXPECT_EQ(offset_of(documented.rank), documented.rank_offset);
    EXPECT_EQ(layout.rank, find_column(layout, documented.rank));
  }
}

// Every length from nothing to two records of each type, read as every type. Some types have
// records of one size: only the header tells those apart.
TEST(DeltaReader, AcceptsWholeRecordsOfTheTypeAskedForOnly) {
  for (const auto& [type, size, key, key_at, first, first_at, rank, rank_at] : kLayouts) {
    const Bytes whole = delta_file(type, std::string(2 * size, '\0'));
    for (std::size_t length = 0; length <= whole.size(); ++length) {
      // A block of its own, so that AddressSanitizer sees a read past the end.
      const Bytes cut(whole.data(), whole.data() + length);
      for (std::uint32_t asked = 0; asked <= kTypeSlots; ++asked) {
        SCOPED_TRACE(testing::Message() << length << " octets of " << type << " as " << asked);
        const DeltaResult result = parse_delta(cut, asked);
        if (length >= 16 && asked == type && (length - 16) % size == 0) {
          EXPECT_EQ(std::get<DeltaTable>(result).count(), (length - 16) / size);
          continue;
        }
        const DeltaFault expected = length == 0     ? DeltaFault::empty
                                    : length < 16   ? DeltaFault::short_header
                                    : asked != type ? DeltaFault::foreign_type
                                                    : DeltaFault::foreign_size;
        EXPECT_EQ(std::get<DeltaFault>(result), expected);
      }
    }
  }
}

TEST(DeltaReader, FindsTheLengthOfAnAddress) {
  const Bytes bytes = delta_file(kNlHost, std::string(64, '\0') + bytes_of(std::uint32_t{7}) +
                                              bytes_of(std::uint32_t{4}) +
                                              std::string{127, 0, 0, 1} + std::string(52, '\0'));
  const auto table = std::get<DeltaTable>(parse_delta(bytes, kNlHost));
  EXPECT_EQ(cell_text(table, 1, 2, NumberStyle::exact), "127.0.0.1");
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

TEST(TableText, RatesFallKeysRiseTotalsComeLast) {
  const Bytes bytes =
      pdist_file({{3, 1}, {9, std::nan("")}, {kTotalIndex, 99}, {1, 5}, {2, 5}, {5, -1}});
  const auto table = std::get<DeltaTable>(parse_delta(bytes, kPdist));
  const auto rows = [&](std::optional<std::size_t> sort_column, std::size_t top) {
    return ordered_rows(table, {.top = top, .sort_column = sort_column});
  };
  EXPECT_THAT(rows({}, 0), testing::ElementsAre(0, 1, 3, 4, 5, 2));
  EXPECT_THAT(rows(1, 99), testing::ElementsAre(3, 4, 0, 5, 1, 2));
  EXPECT_THAT(rows(2, 0), testing::ElementsAre(3, 4, 0, 5, 1, 2));
  EXPECT_THAT(rows(2, 2), testing::ElementsAre(3, 4, 2));
}

TEST(TableText, AlignsCutsAndLabels) {
  setenv("TZ", "NST3:30", 1);
  tzset();
  const Bytes bytes = pdist_file({{3, 1.25}, {70000, 1e9}, {kTotalIndex, 2}});
  const auto table = std::get<DeltaTable>(parse_delta(bytes, kPdist));
  TableStyle style{.numbers = NumberStyle::si, .sort_column = 2};
  EXPECT_EQ(
      table_text(table, "pdist 1", style),
      R"(pdist 1  interval 60 s  sampled 2023-11-14T18:43:20-03:30  rows 3  by protocolDistStatsPkts
protocol_tag  protocolDirLocalIndex  protocolDistStatsPkts  protocolDistStatsOctets
           1                  70000                  1.00G                    10.0G
           1                      3                   1.25                     12.5
           1                  total                      2                       20
)");
  style.width = 14;
  style.top = 1;
  EXPECT_EQ(table_text(table, "pdist 1", style),
            "pdist 1  inter\nprotocol_tag\n           1\n           1\n");
}

}  // namespace
}  // namespace tally
