// Community messages of SNMPv1 (RFC 1157) and SNMPv2c (RFC 1901): the row functions for both.
//
//     SEQUENCE { version INTEGER, community OCTET STRING, the PDU }
//
// They are called through ZnBuildSnmpMessage and ZnParseSnmpMessage (zn_msg.h).
#pragma once

#include <cstdint>

#include "snmp/values.h"
#include "snmp/zn_msg.h"

namespace tally {

// ZnBuildV1SnmpMessage encodes the message. The version is written as an unsigned number under the
// tag of an INTEGER. Returns 0, or -1 when the community or the encoded PDU is missing or the
// whole does not fit a packet (logs).
[[nodiscard]] int ZnBuildV1SnmpMessage(SnmpMessage* message, const Pdu* pdu, void* arg);

// ZnParseV1SnmpMessage parses the community and copies the PDU's bytes into `packlet`; it sets
// `pdu_offset` and `max_pdu_size`, or `status` to 9 or 13 (logs).
void ZnParseV1SnmpMessage(SnmpMessage* message, const SnmpVersionTable* table, void* arg,
                          void* arg2, void* arg3, const unsigned char* bytes, std::int32_t length);

}  // namespace tally
