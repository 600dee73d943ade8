// How values of a record are written for people.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "records/record_cell.h"

namespace tally {

enum class NumberStyle {
  exact,  // the shortest decimal that reads back as the same double
  si,     // three digits and a decimal prefix: 1.23M
};

std::string number_text(double value, NumberStyle style);

// mac_text: lower case, separated by colons.
std::string mac_text(std::span<const unsigned char> octets);

// address_text: a length of 4 gives dotted IPv4, 16 gives IPv6 as in RFC 5952; everything else
// gives plain hex of what counts, and "-" when nothing does. A length that leaves out octets that
// are not zero is not believed: all octets are then shown in hex, so that no two keys look alike.
std::string address_text(const Octets& address);

// printable shows what is not printable ASCII as \xNN: names and settings come from elsewhere and
// go to terminals. "-" when empty.
std::string printable(std::string_view bytes);
std::string name_text(const Octets& name);

// cell_text writes one value of a record by its column's kind; the index of a totals row is
// "total".
std::string cell_text(const RecordLayout& layout, const unsigned char* record, std::size_t column,
                      NumberStyle style);

// time_text: ISO 8601 with the offset of the local time zone, "2026-08-01T12:00:00+02:00".
std::string time_text(std::int64_t seconds_since_epoch);

// duration_text: "45 s", "12 min", "3 h", "5 d"; from far away the smaller units do not matter.
std::string duration_text(std::int64_t seconds);

}  // namespace tally
