// Makes allocations of the SNMP library fail. The test program is linked with --wrap for them, so
// that only those of the library and the tests are concerned, not those of libc.
#pragma once

#include <cstddef>

namespace tally {

struct SystemFaults {
  // The malloc that returns null, counted from now on; 0 for none. `mallocs` is the count.
  int failing_malloc = 0;
  int mallocs = 0;
};

// faults returns the one set of faults; reset_faults makes everything work again and starts to
// count at 0.
SystemFaults& faults();
void reset_faults();

// live_blocks returns how many blocks from malloc have not been freed.
std::size_t live_blocks();

}  // namespace tally
