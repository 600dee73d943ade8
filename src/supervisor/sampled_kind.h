// The poll of the kinds that keep their samples in files: supvlan and ifstats.
//
// The last file becomes prev, a new last file is written row by row as the supervisor answers, and
// the delta file is made from the two. A failure puts the previous sample back.
#pragma once

#include <cstdint>
#include <cstring>

#include "files/delta_file.h"

namespace tally {

// SampledKind is what differs between the two.
struct SampledKind {
  std::uint32_t type;
  DeltaRoutines routines;
  int (*upload)(RecordCache& cache);  // puts one record a row: 1, or 0 (logs)
  const char* header_failed;
  const char* upload_failed;
  const char* flush_failed;
};

// poll_sampled_kind takes a sample and, when there is one before it, makes the delta file. Returns
// 1, or 0 when a file could not be written (logs); rows that the supervisor does not answer for are
// no failure, they are left out.
int poll_sampled_kind(const SampledKind& kind);

// kind_routines returns what the delta file of a kind needs: records that begin with their key, a
// 32-bit number, and a calc_delta (prev, last, out, seconds) that returns a positive number when
// `out` is to be written. A row that is new is held against a sample of zeros.
template <std::uint32_t kRecordSize, auto calc_delta>
constexpr DeltaRoutines kind_routines() {
  const auto compare = [](const RecordCache& last, const RecordCache& prev) {
    std::uint32_t a;
    std::uint32_t b;
    std::memcpy(&a, filebuf_current(last), sizeof a);
    std::memcpy(&b, filebuf_current(prev), sizeof b);
    return (a > b) - (a < b);
  };
  const auto make_delta = [](const RecordCache& last, const RecordCache* prev, unsigned char* out,
                             std::int32_t interval) {
    static constexpr unsigned char kZeros[kRecordSize] = {};
    return calc_delta(prev ? filebuf_current(*prev) : kZeros, filebuf_current(last), out,
                      static_cast<std::uint32_t>(interval));
  };
  return {kRecordSize, compare, make_delta};
}

}  // namespace tally
