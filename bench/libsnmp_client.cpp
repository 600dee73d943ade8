#include "bench/libsnmp_client.h"

#include <net-snmp/net-snmp-config.h>
// The configuration must come first.
#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "daemon/base/paths.h"

namespace tally::bench {

LibsnmpClient::LibsnmpClient(std::uint16_t port, std::vector<Request> requests)
    : requests_(std::move(requests)) {
  init_snmp("bench");
  std::string peer = "udp:127.0.0.1:" + std::to_string(port);
  std::string community = kDefaultNmpCommunity;
  netsnmp_session wanted;
  snmp_sess_init(&wanted);
  wanted.version = SNMP_VERSION_2c;
  wanted.peername = peer.data();
  wanted.community = reinterpret_cast<u_char*>(community.data());
  wanted.community_len = community.size();
  session_ = snmp_sess_open(&wanted);
  if (session_ == nullptr) throw std::runtime_error("no session of libsnmp");
}

LibsnmpClient::~LibsnmpClient() {
  snmp_sess_close(session_);
}

void LibsnmpClient::run() {
  for (const Request& request : requests_) {
    netsnmp_pdu* const pdu = snmp_pdu_create(request.type);
    for (const SubIds& sub_ids : request.names) {
      oid name[MAX_OID_LEN];
      std::copy(sub_ids.begin(), sub_ids.end(), name);
      snmp_add_null_var(pdu, name, sub_ids.size());
    }
    netsnmp_pdu* response = nullptr;
    const int status = snmp_sess_synch_response(session_, pdu, &response);
    const bool answered = status == STAT_SUCCESS && response->errstat == SNMP_ERR_NOERROR;
    if (response != nullptr) snmp_free_pdu(response);
    if (!answered) throw std::runtime_error("no response to libsnmp");
  }
}

}  // namespace tally::bench
