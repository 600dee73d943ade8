// The collection type codes, and what each type is called.
#pragma once

#include <cstdint>

namespace tally {

// Codes as used in control messages and file headers. 11 and everything above 14 are illegal.
enum CollectionType : std::uint32_t {
  kHost = 0,
  kMatrix = 1,
  kPdist = 2,
  kNlHost = 3,
  kNlMatrix = 4,
  kVlan = 5,
  kPrio = 6,
  kDsStats = 7,
  kDsPdist = 8,
  kDsHost = 9,
  kDsMatrix = 10,
  kEtherStats = 12,
  kSupVlan = 13,
  kIfStats = 14,
};

// Size of any table indexed by collection type.
inline constexpr std::uint32_t kTypeSlots = 16;

// is_agent_type tells whether the type's rows come from the RMON agent (0 to 10).
constexpr bool is_agent_type(std::uint32_t type) {
  return type <= kDsMatrix;
}

// is_supervisor_type tells whether the type's rows come from the supervisor (12 to 14). There is
// one collection of each, and its index is ignored.
constexpr bool is_supervisor_type(std::uint32_t type) {
  return type >= kEtherStats && type <= kIfStats;
}

// type_stem returns the stem of the type's file names ("host"), or null for an illegal type.
const char* type_stem(std::uint32_t type);

// listing_name returns what the listing calls the type ("Host (MAC)"); "ILLEGAL VALUE!" for
// dsmatrix, which no control message can create, and for illegal types.
const char* listing_name(std::uint32_t type);

}  // namespace tally
