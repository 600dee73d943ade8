#include "console/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "console/wait.h"

namespace tally {

namespace {

constexpr std::chrono::milliseconds kKeyTime{30};

// What keys send: xterm, the console, and those that follow them.
constexpr std::pair<std::string_view, int> kKeys[] = {
    {"\x1b[A", kUp},      {"\x1bOA", kUp},        {"\x1b[B", kDown}, {"\x1bOB", kDown},
    {"\x1b[C", kRight},   {"\x1bOC", kRight},     {"\x1b[D", kLeft}, {"\x1bOD", kLeft},
    {"\x1b[5~", kPageUp}, {"\x1b[6~", kPageDown}, {"\n", kEnter},    {"\r", kEnter},
    {"\x7f", kBackspace}, {"\b", kBackspace}};

}  // namespace

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
  (void)put("\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[2J\x1b[H");
}

void Screen::leave() {
  (void)put("\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l");
  if (keyboard_) (void)tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

void Screen::suspend() {
  leave();
  (void)raise(SIGSTOP);
  enter();
}

std::vector<int> Screen::keys() const {
  std::string typed;
  char buffer[64];
  ssize_t got = 0;
  while (keyboard_ && (got = read(STDIN_FILENO, buffer, sizeof buffer)) > 0) {
    typed.append(buffer, static_cast<std::size_t>(got));
    // The rest of a key may be on its way; what comes alone is Escape.
    if (typed.ends_with('\x1b')) wait_for({STDIN_FILENO}, kKeyTime);
  }
  std::vector<int> keys;
  for (std::string_view rest = typed; !rest.empty();) {
    const auto* const key =
        std::ranges::find_if(kKeys, [&](const auto& each) { return rest.starts_with(each.first); });
    const bool known = key != std::end(kKeys);
    const bool sequence = rest.starts_with("\x1b[") || rest.starts_with("\x1bO");
    if (known || !sequence) keys.push_back(known ? key->second : rest.front());
    // Of a key that is not known nothing is taken for another: it ends with a letter or "~".
    const std::size_t end = std::min(rest.find_first_of("~ABCDEFGHPQRS", 2), rest.size() - 1);
    rest.remove_prefix(known ? key->first.size() : sequence ? end + 1 : 1);
  }
  return keys;
}

bool Screen::draw(const std::string& lines) {
  std::string redrawn = "\x1b[H\x1b[K";
  for (const char character : lines) {
    redrawn += character;
    if (character == '\n') redrawn += "\x1b[K";
  }
  return put(redrawn);
}

bool put(const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
         std::fflush(stdout) == 0;
}

void complain(const std::string& text) {
  (void)std::fputs(fmt::format("tallyctl: {}\n", text).c_str(), stderr);
}

}  // namespace tally
