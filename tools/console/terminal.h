// What is on the other end of standard output, and how it is taken over.
#pragma once

#include <fmt/format.h>
#include <termios.h>

#include <cstddef>
#include <string>
#include <vector>

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

// Keys that are no characters, beside Escape.
enum Key : int {
  kEscape = 0x1b,
  kUp = 0x100,
  kDown,
  kLeft,
  kRight,
  kPageUp,
  kPageDown,
  kEnter,
  kBackspace
};

// Screen takes the whole terminal while it lives: its other screen, without a cursor, and with keys
// that arrive at once and are not shown. Whatever ends the command, the destructor gives all of it
// back.
class Screen {
 public:
  Screen();
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // suspend gives the terminal back, stops the process as Ctrl-Z does, and takes it again later.
  void suspend();

  // keys returns what was typed: characters of ASCII, and the keys above. Never waits for any.
  std::vector<int> keys() const;
  int keys_fd() const { return keyboard_ ? 0 : -1; }

  // draw shows lines from the upper left corner, each cleared before its text, so that nothing
  // flickers. Returns false when the terminal is gone.
  bool draw(const std::string& lines);

 private:
  void enter();
  void leave();

  bool keyboard_ = false;  // standard input is a terminal, whose settings were:
  termios before_{};
};

// put writes to standard output at once. Returns false when that failed (a closed pipe, a full
// disk).
bool put(const std::string& text);

// complain writes one line, "tallyctl: TEXT", to standard error.
void complain(const std::string& text);
template <class First, class... Rest>
void complain(fmt::format_string<First, Rest...> format, First&& first, Rest&&... rest) {
  complain(fmt::format(format, std::forward<First>(first), std::forward<Rest>(rest)...));
}

}  // namespace tally
