// How values of a record are written.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "records/record_cell.h"

namespace tally {

enum class NumberStyle {
  exact,  // the shortest decimal that reads back as the same double; whole numbers have no exponent
  si,     // three digits and a decimal prefix: 1.23M
};

std::string number_text(double value, NumberStyle style);

// append_exact adds a number in the exact style to a text.
void append_exact(std::string& text, double value);

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

// unescaped puts octets in place of each mark with two hex digits behind it: "\\x" undoes
// printable,
// "%" the addresses of web pages, no mark at all plain hex.
std::string unescaped(std::string_view text, std::string_view mark);

// cell_text writes one value of a record by its column's kind; the index of a totals row is
// "total".
std::string cell_text(const RecordLayout& layout, const unsigned char* record, std::size_t column,
                      NumberStyle style);

// rate_text writes a rate for people: three digits and a decimal prefix; "<0.001" for what is less.
std::string rate_text(double value);

// percent_text: three digits, of which at most two are decimals: "12.5 %", "<0.01 %".
std::string percent_text(double value);

// heading_text gives the heading of a column in people's words, with what its values are in: "Out,
// bit/s" in a delta file, "Out, octets" in the samples, "Errors" in both.
std::string heading_text(const Column& column, FileKind kind);

// people_text writes a value for people under that heading: rates of octets are bits per second,
// counts stay whole.
std::string people_text(const Column& column, double value, FileKind kind);

// time_text: ISO 8601 with the offset of the local time zone, "2026-08-01T12:00:00+02:00".
std::string time_text(std::int64_t seconds_since_epoch);

// duration_text: "45 s", "12 min", "3 h", "5 d"; from far away the smaller units do not matter.
std::string duration_text(std::int64_t seconds);

}  // namespace tally
