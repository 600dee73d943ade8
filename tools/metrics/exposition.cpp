#include "metrics/exposition.h"

#include <charconv>
#include <cmath>

namespace tally {
namespace {

// Doubles hold every whole number below 2^53.
constexpr double kWhole = 9007199254740992.0;

}  // namespace

std::string label_escaped(std::string_view value) {
  std::string escaped;
  for (const char character : value) {
    if (character == '\\' || character == '"') escaped += '\\';
    if (character == '\n') {
      escaped += "\\n";
    } else {
      escaped += character;
    }
  }
  return escaped;
}

std::string label(std::string_view name, std::string_view value) {
  std::string text(name);
  return text.append("=\"").append(label_escaped(value)).append("\"");
}

void Exposition::family(std::string_view name, std::string_view type, std::string_view help) {
  name_ = name;
  output_ << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
}

void Exposition::sample(std::string_view labels, double value) {
  std::string& text = output_.text();
  text += name_;
  if (!labels.empty()) text.append("{").append(labels).append("}");
  text += ' ';
  char digits[32];  // the longest shortest decimal of a double has 24 characters
  if (value >= 0 && value < kWhole && value == std::floor(value)) {
    // A count, as most are: written faster than any other number.
    const auto count = static_cast<std::uint64_t>(value);
    text.append(digits, std::to_chars(digits, digits + sizeof digits, count).ptr);
  } else if (std::isnan(value)) {
    text += "NaN";
  } else if (std::isinf(value)) {
    text += value > 0 ? "+Inf" : "-Inf";
  } else {
    text.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
  }
  text += '\n';
  output_.flush_full();
}

}  // namespace tally
