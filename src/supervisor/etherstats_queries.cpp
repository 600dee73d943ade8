#include "supervisor/etherstats_queries.h"

#include "supervisor/query.h"

namespace tally {
namespace {

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

std::optional<std::uint32_t> only_word(const PduPtr& response) {
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  const std::uint32_t value = answer.word();
  return answer.ok() ? std::optional(value) : std::nullopt;
}

}  // namespace

std::optional<InterfaceState> interface_state(std::uint32_t if_index) {
  const PduPtr response = run_query(kStateQuery, [if_index](Pdu& request) {
    return add_ifoperstatus_varbind({if_index}, request) == 0 &&
           add_iflastchange_varbind({if_index}, request) == 0;
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  const InterfaceState state{answer.word(), answer.word()};
  return answer.ok() ? std::optional(state) : std::nullopt;
}

std::optional<NamedInterfaceState> named_interface_state(std::uint32_t if_index) {
  const PduPtr response = run_query(kNamedStateQuery, [if_index](Pdu& request) {
    return add_ifname_varbind({if_index}, request) == 0 &&
           add_ifoperstatus_varbind({if_index}, request) == 0 &&
           add_iflastchange_varbind({if_index}, request) == 0;
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  const NamedInterfaceState named{InterfaceName::of(answer.octets()),
                                  {answer.word(), answer.word()}};
  return answer.ok() ? std::optional(named) : std::nullopt;
}

std::optional<EtherStatsSample> etherstats_sample(std::uint32_t index, std::uint32_t if_index) {
  const PduPtr response = run_query(kCounterQuery, [index, if_index](Pdu& request) {
    if (add_sysuptime_varbind({}, request) != 0) return false;
    for (const EtherCounter& counter : kEtherCounterTable) {
      if (add_pdu_varbind(etherStatsEntry, counter.column, index, request) != 0) return false;
      if (counter.overflow != 0 &&
          add_pdu_varbind(etherStatsHighCapacityEntry, counter.overflow, index, request) != 0) {
        return false;
      }
    }
    return add_ifspeed_varbind({if_index}, request) == 0 &&
           add_iflastchange_varbind({if_index}, request) == 0;
  });
  if (!response) return std::nullopt;
  AnswerReader answer(*response);
  EtherStatsSample sample;
  (void)answer.word();  // sysUpTime
  for (std::size_t i = 0; i < kEtherCounters; ++i) {
    sample.counters[i] = answer.word();
    if (kEtherCounterTable[i].overflow != 0) {
      sample.counters[i] += std::uint64_t{answer.word()} << 32;
    }
  }
  sample.speed = answer.word();
  (void)answer.word();  // ifLastChange
  return answer.ok() ? std::optional(sample) : std::nullopt;
}

std::optional<std::uint32_t> port_duplex(std::string_view interface_name) {
  return only_word(run_query(kPortDuplexQuery, [interface_name](Pdu& request) {
    return add_portduplex_varbind(interface_name, request) == 0;
  }));
}

std::optional<std::uint32_t> duplex_status(std::uint32_t if_index) {
  return only_word(run_query(kDuplexStatusQuery, [if_index](Pdu& request) {
    return add_duplexstatus_varbind({if_index}, request) == 0;
  }));
}

}  // namespace tally
