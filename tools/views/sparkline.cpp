#include "views/sparkline.h"

#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace tally {
namespace {

constexpr const char* kBlocks[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr const char* kAscii[] = {"_", ".", "-", "~", "=", "+", "*", "#"};

// The larger one, of which either may be unknown.
double larger(double a, double b) {
  return std::isnan(a) || b > a ? b : a;
}

}  // namespace

std::string sparkline(std::span<const double> values, std::size_t width, bool blocks) {
  constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
  double most = kUnknown;
  for (const double value : values) most = larger(most, value);
  const std::size_t count = std::min(width, values.size());
  std::string line;
  for (std::size_t i = 0; i < count; ++i) {
    double share = kUnknown;
    const std::size_t end = (i + 1) * values.size() / count;
    for (std::size_t at = i * values.size() / count; at < end; ++at) {
      share = larger(share, values[at]);
    }
    if (std::isnan(share)) {
      line += ' ';
      continue;
    }
    const double part = most > 0 && std::isfinite(most) ? share / most : 0;
    const int level = part > 0 ? static_cast<int>(part * 7 + 0.5) : 0;
    line += (blocks ? kBlocks : kAscii)[level];
  }
  return line;
}

bool locale_has_blocks() {
  for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* const value = std::getenv(variable);
    if (value == nullptr || *value == '\0') continue;
    const char* const encoding = std::strchr(value, '.');
    return encoding != nullptr &&
           (strncasecmp(encoding, ".utf-8", 6) == 0 || strncasecmp(encoding, ".utf8", 5) == 0);
  }
  return false;
}

}  // namespace tally
