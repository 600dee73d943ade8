// Tables as a script: what --print shows, and --script serves again.
#pragma once

#include <cstdio>

#include "minitapd/tables.h"

namespace minitapd {

// write_script writes all rows of all tables, and pdist's totals, in the form that parse_script
// reads (docs/minitapd-script.md), a row on each line. Returns false when the stream takes no more.
bool write_script(TableSource& source, std::FILE* stream);

}  // namespace minitapd
