// The form of the files of names: words between blanks, a line for each name, comments behind a
// '#'.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tally {

// Names of more characters are taken for nonsense: a table has no room for them.
inline constexpr std::size_t kLongestName = 64;

// NameLine is a line of at least two words; the third may be missing, and is empty then.
struct NameLine {
  std::array<std::string, 3> words;
};

// for_each_line gives the lines of a regular file of at most `limit` octets; none where there is
// none.
void for_each_line(const std::string& path, std::size_t limit,
                   const std::function<void(std::string_view)>& take);

// read_name_file gives the lines of a file that are of use, printable, in order.
std::vector<NameLine> read_name_file(const std::string& path);

}  // namespace tally
