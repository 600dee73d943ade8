// Makes allocations of the SNMP library fail. A test program is linked with --wrap for them, so
// that only those of the library and the tests are concerned, not those of libc.
#pragma once

#include <cstddef>

namespace tally {

struct SystemFaults {
  int failing_malloc = 0;  // the malloc that returns null, counted from now on; 0 for none
  int mallocs = 0;
};
extern SystemFaults faults;

// live_blocks returns how many blocks have not been freed.
std::size_t live_blocks();

}  // namespace tally
