#include "delta_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "daemon/collection_types.h"

namespace tally {
namespace {

using Bytes = std::vector<unsigned char>;

template <typename T>
void put(Bytes& bytes, std::size_t offset, const T& value) {
  ASSERT_LE(offset + sizeof value, bytes.size());
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

Bytes delta_file(std::uint32_t type, std::size_t rows, std::size_t record_size) {
  Bytes bytes(16 + rows * record_size);
  put(bytes, 0, std::int32_t{-60});
  put(bytes, 8, std::int32_t{1'700'000'000});
  put(bytes, 12, type);
  return bytes;
}

// The documented record: its size, and where its first key, first rate and last rate lie.
struct Layout {
  std::uint32_t type;
  std::size_t size;
  const char* key;
  std::size_t key_offset;
  const char* first;
  std::size_t first_offset;
  const char* last;
  std::size_t last_offset;
};

constexpr Layout kLayouts[] = {
    {kHost, 62, "hostAddress", 0, "hostInPkts", 6, "hostOutMulticastPkts", 54},
    {kMatrix, 36, "matrixSDDestAddress", 6, "matrixSDPkts", 12, "matrixSDErrors", 28},
    {kPdist, 24, "protocolDirLocalIndex", 4, "protocolDistStatsPkts", 8, "protocolDistStatsOctets",
     16},
    {kNlHost, 64, "nlHostAddress", 8, "nlHostInPkts", 24, "nlHostOutMacNonUnicastPkts", 56},
    {kNlMatrix, 60, "nlMatrixSDDestAddress", 28, "nlMatrixSDPkts", 44, "nlMatrixSDOctets", 52},
    {kVlan, 36, "smonVlanIdStatsId", 0, "smonVlanIdStatsTotalPkts", 4,
     "smonVlanIdStatsNUcastOctets", 28},
    {kPrio, 20, "smonPrioStatsId", 0, "smonPrioStatsPkts", 4, "smonPrioStatsOctets", 12},
    {kDsStats, 36, "dsmonAggGroupIndex", 0, "dsmonStatsInPkts", 4, "dsmonStatsOutOctets", 28},
    {kDsPdist, 24, "protocolDirLocalIndex", 4, "dsmonPdistStatsPkts", 8, "dsmonPdistStatsOctets",
     16},
    {kDsHost, 60, "dsmonHostAddress", 12, "dsmonHostInPkts", 28, "dsmonHostOutOctets", 52},
    {kDsMatrix, 68, "key_word_1", 48, "dsmonMatrixSDPkts", 52, "dsmonMatrixSDOctets", 60},
    {kEtherStats, 172, "ifName", 12, "utilisationPercent", 28, "etherStatsPkts1024to1518Octets",
     164},
    {kSupVlan, 36, "smonVlanIdStatsId", 0, "smonVlanIdStatsTotalPkts", 4,
     "smonVlanIdStatsNUcastOctets", 28},
    {kIfStats, 120, "ifName", 8, "inUtilisationPercent", 24, "ifOutErrors", 112},
};

std::size_t offset_of(const RecordLayout& layout, const char* name) {
  const auto column = find_column(layout, name);
  return column ? column_offset(layout, *column) : std::string::npos;
}

TEST(RecordColumns, LieWhereTheFilesHaveThem) {
  for (const Layout& documented : kLayouts) {
    SCOPED_TRACE(type_stem(documented.type));
    const RecordLayout* layout = record_layout(documented.type);
    ASSERT_NE(layout, nullptr);
    EXPECT_EQ(layout->size, documented.size);
    EXPECT_EQ(offset_of(*layout, documented.key), documented.key_offset);
    EXPECT_EQ(offset_of(*layout, documented.first), documented.first_offset);
    EXPECT_EQ(offset_of(*layout, documented.last), documented.last_offset);
    ASSERT_LT(layout->rank, layout->columns.size());
    EXPECT_TRUE(is_rate(layout->columns[layout->rank].kind));
    for (std::size_t i = 0; i < layout->columns.size(); ++i) {
      const Column& column = layout->columns[i];
      if (column.kind == ColumnKind::length) continue;
      EXPECT_EQ(find_column(*layout, column.name), i) << "a name that is not unique";
    }
  }
  for (const std::uint32_t illegal : {11U, 15U, 16U, 0xffffffffU}) {
    EXPECT_EQ(record_layout(illegal), nullptr) << illegal;
  }
}

TEST(RecordColumns, AreFoundWhateverTheCase) {
  EXPECT_EQ(find_column(*record_layout(kHost), "HOSTINPKTS"), 1U);
  EXPECT_FALSE(find_column(*record_layout(kHost), "hostInPkt"));
  EXPECT_FALSE(find_column(*record_layout(kNlHost), "address length"));
}

// Every length from nothing to three records, as every type.
TEST(DeltaReader, AcceptsWholeRecordsOnly) {
  for (const Layout& documented : kLayouts) {
    const Bytes whole = delta_file(documented.type, 3, documented.size);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
      SCOPED_TRACE(testing::Message() << type_stem(documented.type) << " of " << length);
      // A vector of its own, so that AddressSanitizer sees a read past the end.
      const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
      const DeltaResult result = parse_delta(cut, documented.type);
      if (length >= 16 && (length - 16) % documented.size == 0) {
        ASSERT_TRUE(std::holds_alternative<DeltaTable>(result));
        EXPECT_EQ(std::get<DeltaTable>(result).count(), (length - 16) / documented.size);
        continue;
      }
      const DeltaFault expected = length == 0   ? DeltaFault::empty
                                  : length < 16 ? DeltaFault::short_header
                                                : DeltaFault::foreign_size;
      ASSERT_TRUE(std::holds_alternative<DeltaFault>(result));
      EXPECT_EQ(std::get<DeltaFault>(result), expected);
    }
  }
}

// vlan and supvlan, and pdist and dspdist, have records of one size: only the header tells.
TEST(DeltaReader, RefusesTheFileOfAnotherType) {
  for (std::uint32_t asked = 0; asked <= 16; ++asked) {
    for (const Layout& documented : kLayouts) {
      const Bytes bytes = delta_file(documented.type, 1, documented.size);
      const DeltaResult result = parse_delta(bytes, asked);
      EXPECT_EQ(std::holds_alternative<DeltaTable>(result), asked == documented.type);
      if (asked == documented.type) continue;
      EXPECT_EQ(std::get<DeltaFault>(result), DeltaFault::foreign_type);
    }
  }
}

TEST(DeltaReader, FindsValuesInTheirRow) {
  Bytes bytes = delta_file(kNlHost, 2, 64);
  const std::size_t second = 16 + 64;
  put(bytes, second + 0, std::uint32_t{7});
  put(bytes, second + 4, std::uint32_t{4});
  put(bytes, second + 8, std::uint32_t{0x0100007f});
  put(bytes, second + 24, 1.5);
  put(bytes, second + 56, -2.25);
  const auto table = std::get<DeltaTable>(parse_delta(bytes, kNlHost));
  EXPECT_EQ(table.header.interval, -60);
  EXPECT_EQ(table.header.sample_time, 1'700'000'000);
  EXPECT_EQ(std::get<std::uint32_t>(table.cell(1, 0)), 7U);
  const auto address = std::get<Octets>(table.cell(1, 2));
  EXPECT_EQ(address.length, 4U);
  EXPECT_EQ(address.bytes.size(), 16U);
  EXPECT_EQ(address.bytes[0], 127);
  EXPECT_EQ(std::get<double>(table.cell(1, 3)), 1.5);
  EXPECT_EQ(std::get<double>(table.cell(1, 7)), -2.25);
  EXPECT_EQ(std::get<double>(table.cell(0, 3)), 0.0);
}

}  // namespace
}  // namespace tally
