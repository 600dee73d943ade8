#include "exposition.h"

#include <charconv>
#include <cmath>

namespace tally {

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
  text_.append("# HELP ").append(name).append(" ").append(help);
  text_.append("\n# TYPE ").append(name).append(" ").append(type).append("\n");
}

void Exposition::sample(std::string_view labels, double value) {
  text_ += name_;
  if (!labels.empty()) text_.append("{").append(labels).append("}");
  text_ += ' ';
  if (std::isnan(value)) {
    text_ += "NaN";
  } else if (std::isinf(value)) {
    text_ += value > 0 ? "+Inf" : "-Inf";
  } else {
    char digits[32];  // the longest shortest decimal of a double has 24 characters
    text_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
  }
  text_ += '\n';
}

}  // namespace tally
