// When two SNMP records mean the same. Sizes do not count: they tell how a record was encoded.
#pragma once

#include "snmp/values.h"

namespace tally {

bool equal(const OID* a, const OID* b);
bool equal(const OctetString* a, const OctetString* b);
bool equal(const Pdu& a, const Pdu& b);

// encodable tells whether the encoder has to accept the PDU: every name and every OID value begins
// with two sub-identifiers that it can join. What the decoder makes may fail that: its first
// sub-identifier may be 3, and a 2 may be followed by nothing above 39 only there.
bool encodable(const OID* oid);
bool encodable(const Pdu& pdu);

}  // namespace tally
