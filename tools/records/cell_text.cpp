#include "records/cell_text.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>

namespace tally {
namespace {

// Whole numbers from here on are written with an exponent: they are no counts.
constexpr double kLargeNumber = 1e21;

// Doubles hold every whole number below 2^53.
constexpr double kExact = 0x1p53;

// Bits of an octet: what people read a rate of octets in.
constexpr double kBits = 8;

std::string si_text(double value) {
  constexpr const char* kPrefixes[] = {"", "k", "M", "G", "T", "P", "E"};
  double scaled = value;
  std::size_t prefix = 0;
  // 999.5 is where three digits round up to the next prefix.
  while (std::fabs(scaled) >= 999.5 && prefix + 1 < std::size(kPrefixes)) {
    scaled /= 1000;
    ++prefix;
  }
  const double size = std::fabs(scaled);
  const bool whole = prefix == 0 && size == std::floor(size);
  if (size < 0.9995 || size >= 999.5) return fmt::format("{:.3g}", value);
  const int decimals = whole || size >= 99.95 ? 0 : size >= 9.995 ? 1 : 2;
  return fmt::format("{:.{}f}{}", scaled, decimals, kPrefixes[prefix]);
}

std::string hex_text(std::span<const unsigned char> octets) {
  return octets.empty() ? "-" : fmt::format("{:02x}", fmt::join(octets, ""));
}

}  // namespace

void append_exact(std::string& text, double value) {
  if (value == 0) {  // most rates of most rows; also what -0 is written as
    text += '0';
    return;
  }
  char digits[32];  // the longest shortest decimal of a double has 24 characters
  char* const end = digits + sizeof digits;
  const bool whole = value == std::floor(value) && std::fabs(value) < kLargeNumber;
  if (whole && value > 0 && value < kExact) {  // a count, written faster than any other number
    text.append(digits, std::to_chars(digits, end, static_cast<std::uint64_t>(value)).ptr);
    return;
  }
  text.append(digits, whole ? std::to_chars(digits, end, value, std::chars_format::fixed).ptr
                            : std::to_chars(digits, end, value).ptr);
}

std::string number_text(double value, NumberStyle style) {
  if (style == NumberStyle::si) return si_text(value);
  std::string text;
  append_exact(text, value);
  return text;
}

std::string rate_text(double value) {
  return value > 0 && value < 0.001 ? "<0.001" : si_text(value);
}

std::string percent_text(double value) {
  if (value > 0 && value < 0.01) return "<0.01 %";
  const int decimals = value == std::floor(value) || value >= 99.95 ? 0 : value >= 9.995 ? 1 : 2;
  return fmt::format("{:.{}f} %", value, decimals);
}

std::string heading_text(const Column& column, FileKind kind) {
  const bool rates = kind == FileKind::delta;
  std::string_view unit;
  if (column.unit == Unit::octets) unit = rates ? "bit/s" : "octets";
  if (column.unit == Unit::packets) unit = rates ? "pkt/s" : "packets";
  if (column.unit == Unit::bits) unit = "bit/s";
  std::string text = column.heading;
  if (!text.empty() && !unit.empty()) text += ", ";
  return text.append(unit);
}

std::string people_text(const Column& column, double value, FileKind kind) {
  if (column.unit == Unit::percent) return percent_text(value);
  if (column.unit != Unit::bits && kind != FileKind::delta) {
    return number_text(value, NumberStyle::exact);
  }
  return rate_text(column.unit == Unit::octets ? value * kBits : value);
}

std::string mac_text(std::span<const unsigned char> octets) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char octet : octets) {
    if (!text.empty()) text += ':';
    text += kDigits[octet >> 4];
    text += kDigits[octet & 15];
  }
  return text;
}

std::string address_text(const Octets& address) {
  const std::size_t length = std::min<std::size_t>(address.length, address.bytes.size());
  const auto rest = address.bytes.subspan(length);
  if (address.length > address.bytes.size() ||
      std::any_of(rest.begin(), rest.end(), [](unsigned char octet) { return octet != 0; })) {
    return hex_text(address.bytes);
  }
  char text[INET6_ADDRSTRLEN];
  if (length == sizeof(in_addr)) {
    return inet_ntop(AF_INET, address.bytes.data(), text, sizeof text);
  }
  if (length == sizeof(in6_addr)) {
    return inet_ntop(AF_INET6, address.bytes.data(), text, sizeof text);
  }
  return hex_text(address.bytes.first(length));
}

std::string printable(std::string_view bytes) {
  std::string text;
  for (const char character : bytes) {
    const bool plain = character >= 0x20 && character < 0x7f && character != '\\';
    text += plain ? std::string(1, character)
                  : fmt::format("\\x{:02x}", static_cast<unsigned char>(character));
  }
  return text.empty() ? "-" : text;
}

std::string unescaped(std::string_view text, std::string_view mark) {
  std::string octets;
  while (!text.empty()) {
    const std::string_view digits = text.substr(std::min(mark.size(), text.size())).substr(0, 2);
    unsigned code = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
    const bool escape = text.starts_with(mark) && error == std::errc{} && digits.size() == 2 &&
                        end == digits.data() + 2;
    octets += escape ? static_cast<char>(code) : text.front();
    text.remove_prefix(escape ? mark.size() + 2 : 1);
  }
  return octets;
}

std::string name_text(const Octets& name) {
  const std::size_t length = std::min<std::size_t>(name.length, name.bytes.size());
  return printable({reinterpret_cast<const char*>(name.bytes.data()), length});
}

std::string cell_text(const RecordLayout& layout, const unsigned char* record, std::size_t column,
                      NumberStyle style) {
  const Cell cell = cell_of(layout, record, column);
  switch (layout.columns[column].kind) {
    case ColumnKind::number_or_total:
      if (std::get<std::uint32_t>(cell) == kTotalIndex) return "total";
      [[fallthrough]];
    case ColumnKind::number:
    case ColumnKind::length:
      return fmt::to_string(std::get<std::uint32_t>(cell));
    case ColumnKind::counter:
    case ColumnKind::percent:
    case ColumnKind::speed:
    case ColumnKind::unused:
      return number_text(std::get<double>(cell), style);
    case ColumnKind::mac:
      return mac_text(std::get<Octets>(cell).bytes);
    case ColumnKind::address:
      return address_text(std::get<Octets>(cell));
    case ColumnKind::name:
      return name_text(std::get<Octets>(cell));
  }
  return {};
}

std::string time_text(std::int64_t seconds_since_epoch) {
  const std::time_t time = seconds_since_epoch;
  std::tm local{};
  localtime_r(&time, &local);
  char text[32];
  (void)std::strftime(text, sizeof text, "%FT%T%z", &local);
  std::string zoned(text);
  zoned.insert(zoned.size() - 2, 1,
               ':');  // strftime's offset lacks the colon of the extended format
  return zoned;
}

std::string duration_text(std::int64_t seconds) {
  constexpr std::pair<std::int64_t, const char*> kUnits[] = {
      {86400, "d"}, {3600, "h"}, {60, "min"}};
  for (const auto& [length, unit] : kUnits) {
    if (seconds >= 2 * length) return fmt::format("{} {}", seconds / length, unit);
  }
  return fmt::format("{} s", seconds);
}

}  // namespace tally
