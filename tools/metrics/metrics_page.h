// All that there is to scrape, as one page in the Prometheus text format.
//
// Counters are those of the last samples. So that the number of series stays bounded whatever the
// network does, the rows with the highest counts have series of their own (labels from their keys)
// and all others are summed up; sums over all rows are counters, sums over the others are gauges,
// because they fall when a row gets series of its own.
#pragma once

#include <cstddef>
#include <vector>

#include "console/output.h"
#include "names/names.h"
#include "probes/tool_paths.h"
#include "records/collection_name.h"

namespace tally {

// write_metrics_page never fails: what cannot be read is told by the page itself. It has the
// collections that are given, or all that have files, each with at most `top` rows of its own.
// `names` are read again when their files have changed.
void write_metrics_page(const ToolPaths& paths, const std::vector<Collection>& collections,
                        std::size_t top, Names& names, Output& output);

}  // namespace tally
