// PDUs that several tests need.
#pragma once

#include <initializer_list>

#include "snmp/free_lib.h"

namespace tally {

// oid makes an OID.
OidPtr oid(std::initializer_list<std::uint32_t> sids);

// every_type returns a PDU in the request form with request id 7 and one binding of every value
// type, in the order of the tags, each named 1.3.6.TAG.
PduPtr every_type(std::int16_t pdu_type);

}  // namespace tally
