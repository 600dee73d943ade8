#include "snmp/zn_msg.h"

#include <algorithm>
#include <cstdlib>

#include "snmp/debug.h"
#include "snmp/prse_pkt.h"
#include "snmp/record.h"

namespace tally {
namespace {

// Returns the row of a version, or -1.
int row_of(const SnmpVersionTable& table, std::int32_t version) {
  const std::int32_t count = std::min(table.count, kMaxVersions);
  for (std::int32_t row = 0; row < count; ++row) {
    if (table.version[row] == version) return row;
  }
  return -1;
}

// Parses the SEQUENCE and the version. Returns the status.
std::int32_t parse_head(SnmpMessage& message) {
  std::int16_t type = -1;
  const std::int32_t length = ParseSequence(&message.wptr, message.end_ptr, &type);
  if (length < 0) {
    ZN_LOG(APPACKET, "%s: ParseSequence:\n", "ZnParseSnmpMessage");
    return kParseAsn1Error;
  }
  if (length > message.end_ptr - message.wptr) {
    ZN_LOG(APPACKET, "%s: bad BER length:\n", "ZnParseSnmpMessage");
    return kParseAsn1Error;
  }
  message.seq_end = message.wptr + length;
  message.end_ptr = message.seq_end;
  const std::int32_t version = ParseInt(&message.wptr, message.end_ptr, &type);
  if (type < 0) {
    ZN_LOG(APPACKET, "%s: version:\n", "ZnParseSnmpMessage");
    return kParseAsn1Error;
  }
  message.version = version;
  return kParseSuccess;
}

}  // namespace

int ZnBuildSnmpMessage(SnmpMessage* message, const Pdu* pdu, const SnmpVersionTable* table) {
  FreeOctetString(message->packlet);
  message->packlet = nullptr;
  const int row = row_of(*table, message->version);
  if (row < 0) {
    ZN_LOG(APPACKET, "%s, bad SNMP version: %d\n", "ZnBuildSnmpMessage", message->version);
    return -1;
  }
  return table->build[row](message, pdu, table->arg[row]);
}

SnmpMessage* ZnParseSnmpMessage(const SnmpVersionTable* table, void* arg2, void* arg3,
                                const unsigned char* bytes, std::int32_t length) {
  auto* const message = new_record<SnmpMessage>();
  if (message == nullptr) {
    ZN_LOG(APWARN, "%s:  snmp_msg malloc\n", "ZnParseSnmpMessage");
    return nullptr;
  }
  message->version = -1;
  if (bytes == nullptr || length < 0) length = 0;
  message->wptr = bytes;
  message->end_ptr = bytes + length;
  message->status = parse_head(*message);
  if (message->status != kParseSuccess) return message;
  const int row = row_of(*table, message->version);
  if (row < 0) {
    message->status = kParseBadVersion;
  } else {
    table->parse[row](message, table, table->arg[row], arg2, arg3, bytes, length);
  }
  return message;
}

void ZnFreeSnmpMessage(SnmpMessage* message) {
  if (message == nullptr) return;
  FreeOctetString(message->packlet);
  FreeOctetString(message->community);
  FreeOID(message->source_party);
  FreeOID(message->destination_party);
  FreeOID(message->party_context);
  FreeOctetString(message->engine_id);
  FreeOctetString(message->user_name);
  FreeOctetString(message->context_name);
  std::free(message);
}

}  // namespace tally
