// One request to the supervisor and its response (SNMPv2c, RFC 1901, RFC 3416).
#pragma once

#include <cstdint>

#include "snmp/free_lib.h"

namespace tally {

// How a request ended.
inline constexpr std::int32_t kRequestFailed = -1;   // has been logged
inline constexpr std::int32_t kRequestTimedOut = 1;  // no response within 2 seconds
inline constexpr std::int32_t kRequestAnswered = 2;

// snmp_request sends a PDU that BuildPdu has encoded, once, and waits for the response with the
// same request id. Returns that response with status 2, or null with status 1 or -1 (logs).
//
// Datagrams with another request id are dropped and the 2 seconds start again, so that a stale
// answer costs nothing. A flood of them is not waited through: after 1,000, or a minute, the
// request has timed out. Who sent an answer, and under which community, is not looked at.
[[nodiscard]] PduPtr snmp_request(const Pdu& request, const char* community, std::int32_t& status);

}  // namespace tally
