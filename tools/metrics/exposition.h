// The Prometheus text format, version 0.0.4.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "console/output.h"

namespace tally {

// label_escaped writes a label's value: backslash, quote and line feed are escaped.
std::string label_escaped(std::string_view value);

// Label is `name="value"`, for lists of them.
std::string label(std::string_view name, std::string_view value);

// Exposition writes metric families. Samples of one family follow its heading.
class Exposition {
 public:
  explicit Exposition(Output& output) : output_(output) {}

  // family begins a family: type is "counter", "gauge" or "untyped".
  void family(std::string_view name, std::string_view type, std::string_view help);

  // sample writes a line of the family. `labels` are written already: a="b",c="d"; may be empty.
  void sample(std::string_view labels, double value);

  // gauge writes a family of one sample without labels.
  void gauge(std::string_view name, std::string_view help, double value);

 private:
  Output& output_;
  std::string name_;
};

}  // namespace tally
