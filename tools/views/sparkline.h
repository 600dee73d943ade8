// A series of numbers as a line of small bars.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace tally {

// sparkline draws `values` as at most `width` characters, from 0 to the largest of them. Each
// character stands for the largest value of its share, so that no peak is lost; a share without a
// number (NaN) is a blank. `blocks` asks for the eight block characters of UTF-8, else ASCII.
std::string sparkline(std::span<const double> values, std::size_t width, bool blocks);

// locale_has_blocks tells whether the user's locale writes UTF-8 (LC_ALL, LC_CTYPE, LANG).
bool locale_has_blocks();

}  // namespace tally
