// What a fuzz target demands of its input.
#pragma once

#include <cstdio>
#include <cstdlib>

// demand ends the process if a property does not hold, in every build type: libFuzzer keeps the
// input, and the replay names the file.
inline void demand(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "property does not hold: %s\n", property);
  std::abort();
}
