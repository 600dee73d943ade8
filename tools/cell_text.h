// How values of a record are written for people.
#pragma once

#include <cstdint>
#include <string>

#include "delta_reader.h"

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
// are not zero is no length: then all octets are shown in hex, so that no two keys look alike.
std::string address_text(const Octets& address);

// name_text shows what is not printable ASCII as \xNN: names come from the network and go to
// terminals. "-" when empty.
std::string name_text(const Octets& name);

// cell_text writes one value of a table by its column's kind; the index of a totals row is "total".
std::string cell_text(const DeltaTable& table, std::size_t row, std::size_t column,
                      NumberStyle style);

// time_text: ISO 8601 with the offset of the local time zone, "2026-08-01T12:00:00+02:00".
std::string time_text(std::int32_t seconds_since_epoch);

}  // namespace tally
