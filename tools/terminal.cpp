#include "terminal.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tally {

Terminal look_at_terminal() {
  Terminal terminal;
  const char* type = std::getenv("TERM");
  if (isatty(STDOUT_FILENO) == 0 || type == nullptr || std::string_view(type) == "dumb") {
    return terminal;
  }
  const char* no_color = std::getenv("NO_COLOR");
  terminal.present = true;
  terminal.colour = no_color == nullptr || *no_color == '\0';
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
    terminal.columns = size.ws_col;
    terminal.lines = size.ws_row;
  }
  return terminal;
}

bool put(const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
         std::fflush(stdout) == 0;
}

void complain(const std::string& text) {
  (void)std::fputs(fmt::format("tallyctl: {}\n", text).c_str(), stderr);
}

}  // namespace tally
