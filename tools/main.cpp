#include <cstdio>
#include <cstdlib>
#include <exception>

#include "daemon/paths.h"
#include "tallyctl.h"

int main(int argc, char** argv) {
  try {
    const char* directory = std::getenv("TALLYD_DIR");
    const bool elsewhere = directory != nullptr && *directory != '\0';
    return tally::tallyctl(argc, argv,
                           {elsewhere ? directory : tally::kDataDirectory, tally::kControlPipe});
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "tallyctl: %s\n", error.what());
    return tally::kAbsent;
  }
}
