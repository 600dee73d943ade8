#include "metrics/exposition.h"

#include <cmath>

#include "records/cell_text.h"

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
  output_ << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
}

void Exposition::gauge(std::string_view name, std::string_view help, double value) {
  family(name, "gauge", help);
  sample("", value);
}

void Exposition::sample(std::string_view labels, double value) {
  std::string& text = output_.text();
  text += name_;
  if (!labels.empty()) text.append("{").append(labels).append("}");
  text += ' ';
  if (std::isnan(value)) {
    text += "NaN";
  } else if (std::isinf(value)) {
    text += value > 0 ? "+Inf" : "-Inf";
  } else {
    append_exact(text, value);
  }
  text += '\n';
  output_.flush_full();
}

}  // namespace tally
