// Creation of SNMPv2c messages (RFC 1901).
#pragma once

#include "snmp/zn_msg.h"

namespace tally {

// ZnCreateV2cSnmpMessage returns a message of version 1, SNMPv2c, that the caller frees, or null
// (logs). With a null `context` it adopts `community`; with any other it stores a copy of it and
// the context. On failure the community stays the caller's.
[[nodiscard]] SnmpMessage* ZnCreateV2cSnmpMessage(OctetString* community, void* context);

}  // namespace tally
