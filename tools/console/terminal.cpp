#include "console/terminal.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
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

Screen::Screen() {
  keyboard_ = isatty(STDIN_FILENO) != 0 && tcgetattr(STDIN_FILENO, &before_) == 0;
  enter();
}

Screen::~Screen() {
  leave();
}

void Screen::enter() {
  if (keyboard_) {
    termios raw = before_;
    raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    raw.c_cc[VMIN] = 0;  // a read never waits
    raw.c_cc[VTIME] = 0;
    (void)tcsetattr(STDIN_FILENO, TCSANOW, &raw);
  }
  (void)put("\x1b[?1049h\x1b[?25l\x1b[2J\x1b[H");
}

void Screen::leave() {
  (void)put("\x1b[0m\x1b[?25h\x1b[?1049l");
  if (keyboard_) (void)tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

void Screen::suspend() {
  leave();
  (void)raise(SIGSTOP);
  enter();
}

std::string Screen::keys() const {
  char typed[64];
  const ssize_t got = keyboard_ ? read(STDIN_FILENO, typed, sizeof typed) : 0;
  return got > 0 ? std::string(typed, static_cast<std::size_t>(got)) : std::string();
}

bool Screen::draw(const std::string& lines) {
  std::string redrawn = "\x1b[H";
  for (const char character : lines) {
    if (character == '\n') redrawn += "\x1b[K";
    redrawn += character;
  }
  return put(redrawn + "\x1b[K\x1b[J");
}

bool put(const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
         std::fflush(stdout) == 0;
}

void complain(const std::string& text) {
  (void)std::fputs(fmt::format("tallyctl: {}\n", text).c_str(), stderr);
}

}  // namespace tally
