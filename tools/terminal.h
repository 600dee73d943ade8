// What is on the other end of standard output.
#pragma once

#include <cstddef>
#include <string>

namespace tally {

struct Terminal {
  bool present = false;     // standard output is a terminal that can be redrawn in place
  bool colour = false;      // and colour is welcome
  std::size_t columns = 0;  // 0: unknown
  std::size_t lines = 0;
};

// look_at_terminal asks the terminal for its present size. There is no colour when NO_COLOR is set
// and not empty; a terminal of type "dumb" counts as a file.
Terminal look_at_terminal();

// put writes to standard output at once. Returns false when that failed (a closed pipe, a full
// disk).
bool put(const std::string& text);

// complain writes one line, "tallyctl: TEXT", to standard error.
void complain(const std::string& text);

}  // namespace tally
