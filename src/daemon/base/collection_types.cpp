#include "daemon/base/collection_types.h"

namespace tally {
namespace {

constexpr char kIllegal[] = "ILLEGAL VALUE!";

struct TypeName {
  const char* stem = nullptr;
  const char* listing = kIllegal;
};

constexpr TypeName kTypeNames[kTypeSlots] = {
    {"host", "Host (MAC)"},
    {"matrix", "Matrix (MAC)"},
    {"pdist", "Protocol Dist"},
    {"nlhost", "Host (Net)"},
    {"nlmatrix", "Matrix (Net)"},
    {"vlan", "Vlan Id"},
    {"prio", "Vlan Prio"},
    {"dsstats", "Dsmon Stats"},
    {"dspdist", "Dsmon Protocol Dist"},
    {"dshost", "Dsmon Host"},
    {"dsmatrix", kIllegal},
    {},
    {"etherstats", "EtherStats"},
    {"supvlan", "VlanStats"},
    {"ifstats", "IfStats"},
    {},
};

}  // namespace

const char* type_stem(std::uint32_t type) {
  return type < kTypeSlots ? kTypeNames[type].stem : nullptr;
}

const char* listing_name(std::uint32_t type) {
  return type < kTypeSlots ? kTypeNames[type].listing : kIllegal;
}

}  // namespace tally
