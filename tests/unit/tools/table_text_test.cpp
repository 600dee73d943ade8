#include "table_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>

#include "daemon/collection_types.h"

namespace tally {
namespace {

using testing::ElementsAre;

TEST(CellText, Numbers) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const struct {
    double value;
    const char* exact;
    const char* si;
  } cases[] = {
      {0, "0", "0"},
      {-0.0, "-0", "-0"},
      {39.5, "39.5", "39.5"},
      {419.6, "419.6", "420"},
      {1.0 / 3, "0.3333333333333333", "0.333"},
      {0.1, "0.1", "0.1"},
      {0.99949, "0.99949", "0.999"},
      {0.9996, "0.9996", "1.00"},
      {9.994, "9.994", "9.99"},
      {9.996, "9.996", "10.0"},
      {99.96, "99.96", "100"},
      {999, "999", "999"},
      {999.4, "999.4", "999"},
      {999.5, "999.5", "1.00k"},
      {1234, "1234", "1.23k"},
      {1234567, "1234567", "1.23M"},
      {999499, "999499", "999k"},
      {999500, "999500", "1.00M"},
      {-1234567, "-1234567", "-1.23M"},
      {18446744073709551616.0, "18446744073709551616", "18.4E"},
      {1e30, "1e+30", "1e+30"},
      {kInfinity, "inf", "inf"},
      {std::nan(""), "nan", "nan"},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(number_text(each.value, NumberStyle::exact), each.exact);
    EXPECT_EQ(number_text(each.value, NumberStyle::si), each.si) << each.exact;
    if (std::isnan(each.value)) continue;
    EXPECT_EQ(std::strtod(each.exact, nullptr), each.value);
  }
}

TEST(CellText, Addresses) {
  const struct {
    const char* what;
    std::uint32_t length;
    std::vector<unsigned char> octets;  // the rest of 16 is 0
    const char* text;
  } cases[] = {
      {"IPv4", 4, {10, 0, 255, 1}, "10.0.255.1"},
      {"IPv4, all zero", 4, {}, "0.0.0.0"},
      {"IPv6: the longest run of zeros",
       16,
       {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0},
       "2001:db8:0:0:1::"},
      {"IPv6: a single zero stays",
       16,
       {0x20, 1, 0xd, 0xb8, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1},
       "2001:db8:0:1:1:1:1:1"},
      {"IPv6: lower case",
       16,
       {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0xAB, 0, 0, 0, 0, 0, 0, 1},
       "fe80::ab00:0:0:1"},
      {"IPv6: mapped",
       16,
       {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 192, 0, 2, 1},
       "::ffff:192.0.2.1"},
      {"IPv6: unspecified", 16, {}, "::"},
      {"a MAC address", 6, {0, 0x1b, 2, 3, 4, 0xff}, "001b020304ff"},
      {"nothing", 0, {}, "-"},
      {"a length of nothing, yet octets", 0, {10, 0, 0, 1}, "0a000001000000000000000000000000"},
      {"octets beyond the length", 4, {10, 0, 0, 1, 9}, "0a000001090000000000000000000000"},
      {"cut at the agent", 17, {0x20, 1}, "20010000000000000000000000000000"},
      {"no length at all", 0xffffffff, {1}, "01000000000000000000000000000000"},
  };
  for (const auto& each : cases) {
    std::vector<unsigned char> field = each.octets;
    field.resize(16);
    EXPECT_EQ(address_text({field, each.length}), each.text) << each.what;
  }
  EXPECT_EQ(mac_text(std::vector<unsigned char>{0, 0x1B, 0xff, 3, 0xA, 1}), "00:1b:ff:03:0a:01");
}

TEST(CellText, NamesCannotDriveTheTerminal) {
  std::vector<unsigned char> field(16);
  const auto text = [&](std::string_view name, std::uint32_t length) {
    std::fill(field.begin(), field.end(), 'x');
    std::copy(name.begin(), name.end(), field.begin());
    return name_text({field, length});
  };
  EXPECT_EQ(text("3/12", 4), "3/12");
  EXPECT_EQ(text("", 0), "-");
  EXPECT_EQ(text("a\x1b[2J\n\x7f\xc3\\", 9), "a\\x1b[2J\\x0a\\x7f\\xc3\\x5c");
  EXPECT_EQ(text("GigabitEthernet1", 16), "GigabitEthernet1");
  EXPECT_EQ(text("GigabitEthernet1", 4000000000), "GigabitEthernet1");
}

TEST(CellText, TimesCarryTheirZone) {
  const char* before = std::getenv("TZ");
  const std::string saved = before == nullptr ? "" : before;
  const struct {
    const char* zone;
    std::int32_t time;
    const char* text;
  } cases[] = {
      {"UTC0", 0, "1970-01-01T00:00:00+00:00"},
      {"UTC0", -1, "1969-12-31T23:59:59+00:00"},
      {"UTC0", std::numeric_limits<std::int32_t>::max(), "2038-01-19T03:14:07+00:00"},
      {"IST-5:30", 1'700'000'000, "2023-11-15T03:43:20+05:30"},
      {"NST3:30", 1'700'000'000, "2023-11-14T18:43:20-03:30"},
  };
  for (const auto& each : cases) {
    setenv("TZ", each.zone, 1);
    tzset();
    EXPECT_EQ(time_text(each.time), each.text);
  }
  before == nullptr ? unsetenv("TZ") : setenv("TZ", saved.c_str(), 1);
  tzset();
}

// A pdist delta file: local indexes with their packet rates, octets ten times as many.
class Pdist {
 public:
  explicit Pdist(const std::vector<std::pair<std::uint32_t, double>>& rows) : bytes_(16) {
    const FileHeader header{60, 0, 0, kPdist};
    std::memcpy(bytes_.data(), &header, sizeof header);
    for (const auto& [index, packets] : rows) {
      append(std::uint32_t{1});
      append(index);
      append(packets);
      append(packets * 10);
    }
  }
  DeltaTable table() const { return std::get<DeltaTable>(parse_delta(bytes_, kPdist)); }

 private:
  template <typename T>
  void append(T value) {
    const auto* first = reinterpret_cast<const unsigned char*>(&value);
    bytes_.insert(bytes_.end(), first, first + sizeof value);
  }
  std::vector<unsigned char> bytes_;
};

TEST(OrderedRows, RatesFallKeysRiseTotalsComeLast) {
  const Pdist pdist({{3, 1}, {9, std::nan("")}, {kTotalIndex, 99}, {1, 5}, {2, 5}, {5, -1}});
  const DeltaTable table = pdist.table();
  constexpr std::size_t kIndex = 1;
  constexpr std::size_t kPackets = 2;
  const auto rows = [&](std::optional<std::size_t> sort_column, std::size_t top) {
    TableStyle style;
    style.sort_column = sort_column;
    style.top = top;
    return ordered_rows(table, style);
  };
  EXPECT_THAT(rows({}, 0), ElementsAre(0, 1, 3, 4, 5, 2));
  EXPECT_THAT(rows({}, 2), ElementsAre(0, 1, 2));
  EXPECT_THAT(rows(kPackets, 0), ElementsAre(3, 4, 0, 5, 1, 2));
  EXPECT_THAT(rows(kPackets, 2), ElementsAre(3, 4, 2));
  EXPECT_THAT(rows(kIndex, 0), ElementsAre(3, 4, 0, 5, 1, 2));
  EXPECT_THAT(rows(kIndex, 99), ElementsAre(3, 4, 0, 5, 1, 2));
}

TEST(TableText, AlignsCutsAndLabels) {
  const Pdist pdist({{3, 1.25}, {70000, 1e9}, {kTotalIndex, 2}});
  TableStyle style;
  style.sort_column = 2;
  style.numbers = NumberStyle::si;
  const std::string text = table_text(pdist.table(), "pdist 1", style);
  const std::string body = text.substr(text.find('\n') + 1);
  EXPECT_EQ(
      body,
      "protocol_tag  protocolDirLocalIndex  protocolDistStatsPkts  protocolDistStatsOctets\n"
      "           1                  70000                  1.00G                    10.0G\n"
      "           1                      3                   1.25                     12.5\n"
      "           1                  total                      2                       20\n");
  EXPECT_THAT(text, testing::StartsWith("pdist 1  interval 60 s  sampled 19"));
  EXPECT_THAT(text, testing::HasSubstr("  rows 3  by protocolDistStatsPkts\n"));

  style.width = 14;
  style.top = 1;
  const std::string cut = table_text(pdist.table(), "pdist 1", style);
  EXPECT_EQ(cut, "pdist 1  inter\nprotocol_tag\n           1\n           1\n");

  style.width = 0;
  style.colour = true;
  EXPECT_THAT(table_text(pdist.table(), "pdist 1", style), testing::StartsWith("\x1b[1mpdist 1"));
  EXPECT_THAT(table_text(Pdist({}).table(), "x", {}), testing::EndsWith("  rows 0\n"));
}

}  // namespace
}  // namespace tally
