#include "supervisor/etherstats_queries.h"

#include "daemon/base/paths.h"
#include "supervisor/bindings.h"
#include "supervisor/query.h"

namespace tally {
namespace {

constexpr std::uint32_t kIndexColumn = 1;  // columns of etherStatsEntry
constexpr std::uint32_t kDataSourceColumn = 2;
constexpr std::uint32_t kOwnerColumn = 20;
constexpr std::uint32_t kStatusColumn = 21;

constexpr Query kRowQuery = {
    GET_NEXT_REQUEST_PDU,
    "Error building PDU for etherStatsStatus.",
    "Error performing SNMP request for etherStatsStatus().",
    "Received unexpected response type %u for etherStatsStatus.",
    "etherStatsStatus response packet had error %u",
};

constexpr Query kCounterQuery = {
    GET_REQUEST_PDU,
    "Error building PDU for etherStatsEntry.",
    "Error performing SNMP request for etherStatsEntry.",
    "Received unexpected response type %u for etherStatsEntry.",
    "etherStatsEntry response packet had error %u",
};

constexpr Query kStateQuery = {
    GET_REQUEST_PDU,
    "Error building PDU for ifOperStatus.",
    "Error performing SNMP request for ifOperStatus.",
    "Received unexpected response type %u for ifOperStatus.",
    "Received error status %u for ifOperStatus.",
};

constexpr Query kNamedStateQuery = {
    GET_REQUEST_PDU,
    "Error building PDU for name, status, and last change.",
    "Error performing SNMP request for name, status, and last change.",
    "Received unexpected response type %u for name, status, and last change.",
    "Received error status %u for name, status, and last change.",
};

constexpr Query kPortDuplexQuery = {
    GET_REQUEST_PDU,
    "Error building PDU for portDuplex.",
    "Error performing SNMP request for portDuplex.",
    "Received unexpected response type %u for portDuplex.",
    "Received error status %u for portDuplex.",
};

constexpr Query kDuplexStatusQuery = {
    GET_REQUEST_PDU,
    "Error building PDU for duplexStatus.",
    "Error performing SNMP request for duplexStatus.",
    "Received unexpected response type %u for duplexStatus.",
    "Received error status %u for duplexStatus.",
};

// How many bindings the counters of a row take.
constexpr std::size_t kCounterColumns = [] {
  std::size_t columns = 0;
  for (const EtherCounter& counter : kEtherCounterTable) columns += counter.overflow == 0 ? 1 : 2;
  return columns;
}();

std::optional<std::int32_t> only_integer(const PduPtr& response) {
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  const std::int32_t value = answer.integer();
  return answer.ok() ? std::optional(value) : std::nullopt;
}

}  // namespace

std::optional<EtherStatsRow> next_etherstats_row(std::uint32_t after) {
  const PduPtr response = run_query(kRowQuery, [after](Pdu& request) {
    return add_pdu_varbind(etherStatsEntry, kIndexColumn, after, request) == 0 &&
           add_pdu_varbind(etherStatsEntry, kOwnerColumn, after, request) == 0 &&
           add_pdu_varbind(etherStatsEntry, kStatusColumn, after, request) == 0 &&
           add_pdu_varbind(etherStatsEntry, kDataSourceColumn, after, request) == 0;
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  (void)answer.integer();  // the index, which the name says, too
  const auto name = answer.name();
  if (!names_a_row(etherStatsEntry, name) || name[name.size() - 2] != kIndexColumn) {
    return EtherStatsRow{};
  }
  EtherStatsRow row = {};
  row.index = name.back();
  row.is_ours = answer.octets() == kRmonOwner;
  if (answer.ok() && !row.is_ours) return row;  // stepped over, whatever else it says
  row.status = answer.integer();
  row.if_index = answer.last_sub_id();
  return answer.ok() ? std::optional(row) : std::nullopt;
}

std::optional<InterfaceState> interface_state(std::uint32_t if_index) {
  const PduPtr response = run_query(kStateQuery, [if_index](Pdu& request) {
    return add_ifoperstatus_varbind(if_index, request) == 0 &&
           add_iflastchange_varbind(if_index, request) == 0;
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  const InterfaceState state{answer.integer(), answer.unsigned32()};
  return answer.ok() ? std::optional(state) : std::nullopt;
}

std::optional<NamedInterfaceState> named_interface_state(std::uint32_t if_index) {
  const PduPtr response = run_query(kNamedStateQuery, [if_index](Pdu& request) {
    return add_ifname_varbind(if_index, request) == 0 &&
           add_ifoperstatus_varbind(if_index, request) == 0 &&
           add_iflastchange_varbind(if_index, request) == 0;
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  const NamedInterfaceState named{InterfaceName(answer.octets()),
                                  {answer.integer(), answer.unsigned32()}};
  return answer.ok() ? std::optional(named) : std::nullopt;
}

std::optional<EtherStatsSample> etherstats_sample(std::uint32_t index, std::uint32_t if_index) {
  static KeptRequest kept(kCounterQuery);
  const auto bind = [index, if_index](Pdu& request) {
    if (add_sysuptime_varbind(request) != 0) return false;
    for (const EtherCounter& counter : kEtherCounterTable) {
      if (add_pdu_varbind(etherStatsEntry, counter.column, index, request) != 0) return false;
      if (counter.overflow != 0 &&
          add_pdu_varbind(etherStatsHighCapacityEntry, counter.overflow, index, request) != 0) {
        return false;
      }
    }
    return add_ifspeed_varbind(if_index, request) == 0 &&
           add_iflastchange_varbind(if_index, request) == 0;
  };
  const PduPtr response = kept.run(bind, [index, if_index](std::size_t binding) {
    if (binding == 0) return std::uint32_t{0};  // sysUpTime
    return binding <= kCounterColumns ? index : if_index;
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  EtherStatsSample sample;
  (void)answer.unsigned32();  // sysUpTime
  for (std::size_t i = 0; i < kEtherCounters; ++i) {
    sample.counters[i] = answer.unsigned32();
    if (kEtherCounterTable[i].overflow != 0) {
      sample.counters[i] += std::uint64_t{answer.unsigned32()} << 32;
    }
  }
  sample.speed = answer.unsigned32();
  (void)answer.unsigned32();  // ifLastChange
  return answer.ok() ? std::optional(sample) : std::nullopt;
}

std::optional<std::int32_t> port_duplex(std::string_view interface_name) {
  return only_integer(run_query(kPortDuplexQuery, [interface_name](Pdu& request) {
    return add_portduplex_varbind(interface_name, request) == 0;
  }));
}

std::optional<std::int32_t> duplex_status(std::uint32_t if_index) {
  return only_integer(run_query(kDuplexStatusQuery, [if_index](Pdu& request) {
    return add_duplexstatus_varbind(if_index, request) == 0;
  }));
}

}  // namespace tally
