// All that there is to scrape, as one page in the Prometheus text format.
//
// Counters are those of the last samples. So that the number of series stays bounded whatever the
// network does, the rows with the highest counts have series of their own (labels from their keys)
// and all others are summed up; sums over all rows are counters, sums over the others are gauges,
// because they fall when a row gets series of its own.
#pragma once

#include "output.h"
#include "tallyctl.h"

namespace tally {

// write_metrics_page never fails: what cannot be read is told by the page itself.
void write_metrics_page(const ToolPaths& paths, const MetricsOptions& options, Output& output);

}  // namespace tally
