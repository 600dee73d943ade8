// The three files of one contender's collection.
#pragma once

#include <string>

namespace tally::bench {

struct SamplePaths {
  std::string last;
  std::string prev;
  std::string delta;
};

}  // namespace tally::bench
