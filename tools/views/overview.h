// All collections at a glance: a line for each.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "views/course.h"
#include "views/text_columns.h"
#include "views/view.h"

namespace tally {

enum class Health { live, stale, failing, waiting };

// health_word returns "live", "stale", ...
const char* health_word(Health health);

// Digest is what is known of one collection.
struct Digest {
  Collection collection{};
  bool viewed = true;                  // else it is polled once an hour
  std::optional<FileHeader> header{};  // of the delta file
  bool failing = false;                // it cannot be trusted
  std::string trouble{};               // why, or why there is none
  std::uint64_t rows = 0;
  std::optional<double> total{};  // the type's main rate, of all rows together
  std::string busiest{};          // what the row with the highest such rate is called
  std::optional<double> busiest_rate{};
  Course course{};
  std::vector<std::int32_t> intervals{};  // of the newest samples

  // take is told what became of the delta file.
  void take(const OpenFiles& files, const AnnotateOptions& annotate, const Names& names);

  // age returns that of the sample, in seconds.
  std::int64_t age(std::int64_t now) const {
    return header ? std::max<std::int64_t>(now - header->sample_time, 0) : 0;
  }

  // health judges at a moment, in seconds since the epoch. A sample is stale half an interval and
  // five seconds after the next one was due: by the usual interval or, while that is not known, by
  // its own, and no sooner than the daemon's default plans; an hour later where nobody looks.
  Health health(std::int64_t now) const;
};

// overview_columns sorts the digests by a column (0: as collections are listed) and writes a line
// for each; their courses are as long as suits lines of this width.
std::vector<TextColumn> overview_columns(std::vector<const Digest*>& digests, std::size_t sorted_by,
                                         bool reversed, std::size_t width, bool colour,
                                         std::int64_t now);

// next_sorting returns the next column that digests can be sorted by: to the right, or to the left.
std::size_t next_sorting(std::size_t column, bool right);

}  // namespace tally
