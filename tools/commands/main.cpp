#include <cstdio>
#include <exception>

#include "commands/tallyctl.h"

int main(int argc, char** argv) {
  try {
    return tally::tallyctl(argc, argv, tally::appliance_paths());
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "tallyctl: %s\n", error.what());
    return tally::kAbsent;
  }
}
