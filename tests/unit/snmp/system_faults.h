// Makes allocations of the SNMP library fail, and its receives start late. The test program is
// linked with --wrap for these calls, so that only those from the library and the tests are
// concerned, not those from libc.
#pragma once

#include <cstddef>
#include <functional>

namespace tally {

struct SystemFaults {
  // The malloc that returns null, counted from now on; 0 for none. `mallocs` is the count.
  int failing_malloc = 0;
  int mallocs = 0;

  // Called right before each receive starts.
  std::function<void()> before_receive;
};

// faults returns the one set of faults; reset_faults makes everything work again and starts to
// count at 0.
SystemFaults& faults();
void reset_faults();

// live_blocks returns how many blocks from malloc have not been freed.
std::size_t live_blocks();

}  // namespace tally
